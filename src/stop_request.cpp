// The request that the service stop, which every loop looks at.
#include "stop_request.h"

namespace Vard {

std::atomic<bool> serviceRunning{false};
std::atomic<bool> stopRequested{false};

void requestStop() noexcept {
    stopRequested = true;
    serviceRunning = false;
}

} // namespace Vard
