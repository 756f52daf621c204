// The request that the service stop, which every loop looks at.
#pragma once

#include <atomic>

namespace Vard {

/// True from the end of the start until a stop is asked for; every loop of the worker thread tests it.
extern std::atomic<bool> serviceRunning;
/// Set for good by a stop signal, so that one that comes during the start is not forgotten.
extern std::atomic<bool> stopRequested;

/// Asks the service to stop. Async-signal-safe; any thread.
void requestStop() noexcept;

} // namespace Vard
