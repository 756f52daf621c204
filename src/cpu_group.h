// The service's own CPU group. Programs built on these rooms are to be able to enter it; nothing here calls it.
#pragma once

namespace Vard {

/// Puts the current process into the service's own CPU cgroup (version 1 hierarchy); logs when there is none.
void movingProcessToVardCgroup();

} // namespace Vard
