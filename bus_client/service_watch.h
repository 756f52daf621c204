// What the service tells: its coming, its going, its signals.
#pragma once

#include "connection.h"

namespace BusClient {

/// Every signal of the service's interface, whoever sent it.
inline constexpr const char* interfaceSignals = "type='signal',path='/ru/korvex/vard',interface='ru.korvex.vard'";

/// Follows the service on a connection, which must not hand out messages any more when this object has gone.
class ServiceWatch {
public:
    /// What is told; called from code in C.
    struct Handler {
        virtual ~Handler() = default;
        /// The service has come to the bus, or another instance has taken its place.
        virtual void serviceAppeared() noexcept = 0;
        /// It has gone, or another instance is about to take its place.
        virtual void serviceLeft() noexcept = 0;
        /// One of its own signals, whose values are still to be read.
        virtual void signalCame(Message& signal) noexcept = 0;
        /// A signal under the service's names that is not its own: anybody may send one straight to a connection.
        virtual void strangerSignalled(const std::string& sender) noexcept = 0;
    };

    /// From now on; that the service is there already is not told. Throws Error.
    ServiceWatch(Connection& bus, Handler& handler);
    ServiceWatch(const ServiceWatch&) = delete;
    ServiceWatch& operator=(const ServiceWatch&) = delete;

    /// True while the service is on the bus.
    [[nodiscard]] bool present() const { return !owner_.empty(); }

private:
    void ownerChanged(Message& message);
    void signalled(Message& message);

    Handler& handler_;
    std::string owner_;
};

} // namespace BusClient
