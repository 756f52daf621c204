// The signals of the service, going out.
#include "bus_signals.h"

#include "dispatcher.h"
#include "logger.h"

#include <exception>

namespace Vard {

// The loop may be waiting: what could not be written at once goes out when it looks again.
template <typename Signal>
void BusSignals::emit(const Signal& signal) noexcept {
    if (!alive_) {
        return;
    }
    try {
        signal();
    } catch (const std::exception& err) {
        Syslog::error("%s: exception: %s", "emitSignal", err.what());
    }
    serviceDispatcher.wake();
}

void BusSignals::sessionConnected(uint32_t sid) noexcept {
    emit([&] { bus_.signalSessionConnected(sid); });
}

void BusSignals::sessionDisconnected(uint32_t sid) noexcept {
    emit([&] { bus_.signalSessionDisconnected(sid); });
}

void BusSignals::sessionShutdown(uint32_t sid) noexcept {
    emit([&] { bus_.signalSessionShutdown(sid); });
}

void BusSignals::proxyAllowConnection(uint32_t sid, uid_t uid) noexcept {
    emit([&] { bus_.signalProxyAllowConnection(sid, uid); });
}

void BusSignals::proxyListenTimeout(uint32_t seconds) noexcept {
    emit([&] { bus_.signalProxyListenTimeout(seconds); });
}

void BusSignals::vardStopped() noexcept {
    emit([&] { bus_.signalVardStopped(); });
}

} // namespace Vard
