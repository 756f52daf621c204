// The signals of the service, going out.
#pragma once

#include <vard_adaptor.h>

#include <sys/types.h>

#include <atomic>
#include <cstdint>

namespace Vard {

/// Sends signals as long as there is a bus: the library would keep each in memory for one that is gone. Never throws;
/// any thread, but under no lock that a bus method takes.
class BusSignals {
public:
    explicit BusSignals(ru::korvex::vard_adaptor& bus) : bus_(bus) {}

    void sessionConnected(uint32_t sid) noexcept; ///< a transport serves a client
    void sessionDisconnected(uint32_t sid) noexcept; ///< it does no more
    void sessionShutdown(uint32_t sid) noexcept; ///< the session has ended
    void proxyAllowConnection(uint32_t sid, uid_t uid) noexcept; ///< the proxy may let the user's client in
    void proxyListenTimeout(uint32_t seconds) noexcept; ///< how long the proxy is to wait for a client
    void vardStopped() noexcept; ///< the service stops

    /// From now on nothing is sent.
    void busLost() noexcept { alive_ = false; }
    /// False once the bus was lost.
    [[nodiscard]] bool alive() const noexcept { return alive_; }

private:
    template <typename Signal>
    void emit(const Signal& signal) noexcept;

    ru::korvex::vard_adaptor& bus_;
    std::atomic<bool> alive_{true};
};

} // namespace Vard
