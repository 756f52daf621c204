// How busy the machine is.
#pragma once

namespace Vard {

/// The load of the last five minutes as a percentage of all processors; 0 when it cannot be read. Any thread.
double loadAverage();

} // namespace Vard
