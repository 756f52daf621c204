// The doors' side of the service's bus interface.
#pragma once

#include "bus_client/service_watch.h"

#include <systemd/sd-event.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Doors {

/// The connection to the system bus, driven by the event loop; when the bus goes, the loop ends. Nothing here waits for
/// the service, which may be busy starting a session. All on the one thread.
class ServiceLink : BusClient::ServiceWatch::Handler {
public:
    struct Handler {
        virtual ~Handler() = default;
        virtual void allowConnection(uint32_t session, uint32_t uid) = 0;
        virtual void listenTimeout(uint32_t seconds) = 0;
        virtual void sessionShutdown(uint32_t session) = 0;
        virtual void serviceStopped() = 0;
    };

    /// Connects and listens. Throws BusClient::Error.
    ServiceLink(sd_event* loop, Handler& handler);
    ServiceLink(const ServiceLink&) = delete;
    ServiceLink& operator=(const ServiceLink&) = delete;

    /// Asks for a session's JSON text; `answered` gets it later, empty when the service gave none.
    void askSession(uint32_t session, std::function<void(const std::string& json)> answered);

    void reportListening(uint32_t session, bool success);
    void reportClient(uint32_t session, const std::string& address);
    void reportConnected(uint32_t session, uint32_t pid, const std::string& address);
    void reportSecurity(uint32_t session, bool nla, bool tls, bool rdp);

private:
    template <typename... Args>
    void report(const char* method, const char* types, Args... args);
    void dispatch(const std::string& signal, const std::vector<uint32_t>& values);
    void serviceAppeared() noexcept override {}
    void serviceLeft() noexcept override;
    void signalCame(BusClient::Message& signal) noexcept override;
    void strangerSignalled(const std::string& sender) noexcept override;

    Handler& handler_;
    BusClient::Connection bus_;
    BusClient::ServiceWatch watch_{bus_, *this};
};

} // namespace Doors
