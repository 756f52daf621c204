// A door for every session that the service opens.
#pragma once

#include "service_link.h"
#include "session_door.h"

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace Doors {

/// Follows the service and leads clients to their sessions, on the loop's thread, until stop() or the end of the bus.
class Doorkeeper : public ServiceLink::Handler, public SessionDoor::Owner {
public:
    /// Connects to the bus, and finds the sessions that run. `finished` is called once after stop(), when all is
    /// closed, or when the bus is lost. Throws BusClient::Error.
    Doorkeeper(asio::io_context& loop, const Options& options, std::function<void(bool orderly)> finished);

    /// Leads a client to the session that it asks for, or closes it.
    void place(const std::shared_ptr<Client>& client);
    /// Ends all transports.
    void stop();

private:
    struct Choice;

    void allowConnection(uint32_t session, uint32_t uid) override;
    void listenTimeout(uint32_t seconds) override;
    void sessionShutdown(uint32_t session) override;
    void serviceStarted() override;
    void serviceStopped() override;
    void busLost() override;

    void ask(uint32_t session) override;
    void doorClosed(uint32_t session) override;

    SessionDoor& doorOf(uint32_t session);
    void findSessions();
    void closeAll();
    [[nodiscard]] bool stillUnknown() const;
    [[nodiscard]] Choice choose(const ConnectionRequest& request) const;
    [[nodiscard]] Choice chooseFor(const std::string& user) const;
    void placeUndecided();

    asio::io_context& loop_;
    const Options& options_;
    std::function<void(bool orderly)> finished_;
    ServiceLink service_;
    bool stopping_ = false;
    bool listing_ = false; ///< the list of the sessions was asked for
    std::set<uint32_t> asked_; ///< for these sessions, whose answers are on their way
    std::set<uint32_t> askAgain_; ///< something has changed meanwhile
    std::optional<std::chrono::seconds> announcedLimit_;
    Timer announcedTimer_;
    Timer listTimer_;
    std::map<uint32_t, std::unique_ptr<SessionDoor>> doors_;
    std::vector<std::shared_ptr<Client>> undecided_; ///< they may mean a session that is not known yet
};

} // namespace Doors
