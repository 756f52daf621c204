// The signals of the service, going out.
#pragma once

#include <vard_adaptor.h>

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>

namespace Vard {

/// Sends signals as long as there is a bus: the library would keep each in memory for one that is gone. Never throws;
/// any thread, but under no lock that a bus method takes.
class BusSignals {
public:
    explicit BusSignals(ru::korvex::vard_adaptor& bus) : bus_(bus) {}

    void sessionConnected(uint32_t sid) noexcept;
    void sessionDisconnected(uint32_t sid) noexcept;
    void sessionShutdown(uint32_t sid) noexcept;
    void proxyAllowConnection(uint32_t sid, uid_t uid) noexcept;
    void proxyListenTimeout(uint32_t seconds) noexcept;
    void vardStopped() noexcept;

    /// From now on nothing is sent.
    void busLost() noexcept { alive_ = false; }
    /// False once the bus was lost.
    [[nodiscard]] bool alive() const noexcept { return alive_; }

private:
    void emit(const std::function<void()>& signal) noexcept;

    ru::korvex::vard_adaptor& bus_;
    std::atomic<bool> alive_{true};
};

} // namespace Vard
