// The way into one session: its transport, one process after the other.
//
// A transport lives for one connection. The service takes the end of its process for the client's leaving, and ends it
// to make the client leave; so when the client has gone the connector ends the process itself, and while the session
// lives a fresh one listens on the same port.
#pragma once

#include "events.h"
#include "options.h"
#include "owned_file.h"
#include "service_link.h"
#include "session_info.h"
#include "transport.h"

#include <chrono>
#include <memory>
#include <set>
#include <string>

namespace Doors {

/// The door of one session. Owns its transport and the files that belong to it. All on the event loop's thread.
class Door : public Transport::Handler {
public:
    /// Who keeps the doors.
    struct Owner {
        virtual ~Owner() = default;
        /// Asks the service for the session; answered() of the door with that number, if there still is one, follows.
        virtual void ask(uint32_t session) = 0;
        /// A port that nobody listens on, `preferred` if that is one; 0 when there is none.
        virtual uint16_t choosePort(uint16_t preferred) = 0;
        /// The door is of no more use. May destroy it.
        virtual void doorClosed(uint32_t session) = 0;
    };

    /// Closed at first. All that it is given must outlive it.
    Door(sd_event* loop, ServiceLink& service, const Options& options, Owner& owner, uint32_t session)
        : loop_(loop), service_(service), options_(options), owner_(owner), session_(session) {}

    /// The port that its transports listen on; 0 before the first.
    [[nodiscard]] uint16_t port() const { return port_; }
    /// Clients may come, within the limit if it is not zero. A running transport stays, with the hash line of today.
    void open(std::chrono::seconds limit);
    /// Another limit, if it still waits for its client.
    void limitWaiting(std::chrono::seconds limit);
    /// The service's answer; empty when it gave none.
    void answered(const std::string& json);
    /// The session has ended. Another may have taken its number meanwhile: the service is asked.
    void sessionEnded();
    /// Ends the transport for good. May destroy this object at once.
    void close();

private:
    void launch(const SessionInfo& info);
    void startTransport(const SessionInfo& info);
    void giveUp(const char* why);
    void startLimit();
    void listening();
    void clientCame();
    void clientServed(const LogEvent& event);
    void watchClients();
    void transportSaid(const LogEvent& event, const std::string& line) override;
    void transportEnded() override;

    sd_event* loop_;
    ServiceLink& service_;
    const Options& options_;
    Owner& owner_;
    uint32_t session_;
    uint16_t port_ = 0;
    bool wanted_ = false; ///< a transport that ends is followed by another
    std::chrono::seconds limit_{0};

    // Of the present transport:
    std::unique_ptr<OwnedFile> samFile_;
    std::unique_ptr<OwnedFile> portFile_;
    std::unique_ptr<Transport> transport_;
    bool listening_ = false;
    std::set<std::string> reported_; ///< addresses the service was told of
    std::set<pid_t> served_; ///< the threads of authenticated clients
    bool connected_ = false; ///< a client has been served
    LogEvent security_;

    std::unique_ptr<EventSource> limitTimer_;
    std::unique_ptr<EventSource> watchTimer_;
    std::unique_ptr<EventSource> againTimer_;
};

} // namespace Doors
