// The doors' side of the service's bus interface.
#pragma once

#include "bus_client/service_watch.h"
#include "bus_source.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Doors {

/// The connection to the system bus, driven by the event loop. Nothing here waits for the service, which may be busy
/// starting a session. All on the loop's thread.
class ServiceLink : BusClient::ServiceWatch::Handler {
public:
    /// What the service tells; an exception is logged.
    struct Handler {
        virtual ~Handler() = default;
        /// A client may come to that session, which is the user's with that id.
        virtual void allowConnection(uint32_t session, uint32_t uid) = 0;
        /// For how long a client may be waited for; zero: without a limit. Names no session.
        virtual void listenTimeout(uint32_t seconds) = 0;
        /// The session has ended.
        virtual void sessionShutdown(uint32_t session) = 0;
        /// The service is there now.
        virtual void serviceStarted() = 0;
        /// The service stops, or has gone from the bus.
        virtual void serviceStopped() = 0;
        /// The bus has gone: nothing follows.
        virtual void busLost() = 0;
    };

    /// Connects and listens. Throws BusClient::Error.
    ServiceLink(asio::io_context& loop, Handler& handler);
    ServiceLink(const ServiceLink&) = delete;
    ServiceLink& operator=(const ServiceLink&) = delete;

    /// True while the service is on the bus.
    [[nodiscard]] bool present() const { return watch_.present(); }
    /// Asks which sessions there are; `answered` gets their numbers later, or nothing when there was no answer.
    void askSessions(std::function<void(const std::optional<std::vector<uint32_t>>& sessions)> answered);
    /// Asks for a session's JSON text; `answered` gets it later, or nothing when there was no answer.
    void askSession(uint32_t session, std::function<void(const std::optional<std::string>& json)> answered);

    /// Tells whether a transport listens for the session. Like all reports it waits for nothing; a refusal is logged.
    void reportListening(uint32_t session, bool success);
    /// Tells of a client that has come and not shown its password yet.
    void reportClient(uint32_t session, const std::string& address);
    /// Tells that the transport with that process id serves an authenticated client.
    void reportConnected(uint32_t session, uint32_t pid, const std::string& address);
    /// Tells which kinds of security the client has negotiated.
    void reportSecurity(uint32_t session, bool nla, bool tls, bool rdp);

private:
    template <typename... Args>
    void report(const char* method, const char* types, Args... args);
    void dispatch(const std::string& signal, const std::vector<uint32_t>& values);
    void send(const BusClient::Message& call, BusClient::Connection::Handler answered);
    void sendNext();
    void serviceAppeared() noexcept override;
    void serviceLeft() noexcept override;
    void signalCame(BusClient::Message& signal) noexcept override;
    void strangerSignalled(const std::string& sender) noexcept override;

    struct Call {
        BusClient::Message message;
        BusClient::Connection::Handler answered;
    };

    Handler& handler_;
    std::deque<Call> calls_; ///< to be sent
    size_t unanswered_ = 0;
    BusClient::Connection bus_;
    BusClient::ServiceWatch watch_{bus_, *this};
    BusSource source_;
};

} // namespace Doors
