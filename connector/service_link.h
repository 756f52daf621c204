// The connector's side of the service's bus interface.
#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Connector {

/// The connection to the system bus, driven by the event loop; when the bus goes, the loop ends. Nothing here waits for
/// the service, which may be busy starting a session. All on the one thread.
class ServiceLink {
public:
    struct Handler {
        virtual ~Handler() = default;
        virtual void allowConnection(uint32_t session, uint32_t uid) = 0;
        virtual void listenTimeout(uint32_t seconds) = 0;
        virtual void sessionShutdown(uint32_t session) = 0;
        virtual void serviceStopped() = 0;
    };

    /// Connects and listens. Throws std::system_error.
    ServiceLink(sd_event* loop, Handler& handler);
    ~ServiceLink();
    ServiceLink(const ServiceLink&) = delete;
    ServiceLink& operator=(const ServiceLink&) = delete;

    /// Asks for a session's JSON text; `answered` gets it later, empty when the service gave none.
    void askSession(uint32_t session, std::function<void(const std::string& json)> answered);

    void reportListening(uint32_t session, bool success);
    void reportClient(uint32_t session, const std::string& address);
    void reportConnected(uint32_t session, uint32_t pid, const std::string& address);
    void reportSecurity(uint32_t session, bool nla, bool tls, bool rdp);

private:
    using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

    Message newCall(const char* method);
    struct Unref {
        void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    };
    template <typename... Args>
    void report(const char* method, const char* types, Args... args);
    void findOwner();
    void dispatch(sd_bus_message* message);
    static int signalReceived(sd_bus_message* message, void* self, sd_bus_error* error);
    static int ownerChanged(sd_bus_message* message, void* self, sd_bus_error* error);

    Handler& handler_;
    std::unique_ptr<sd_bus, Unref> bus_;
    std::string owner_; ///< unique name of the service's connection; empty when it does not run
};

} // namespace Connector
