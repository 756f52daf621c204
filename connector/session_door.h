// The way into one session.
//
// The service takes the end of a transport's process for the client's leaving, ends it to make the client leave, and
// ends the one before when another is reported. So a transport serves one client: it waits for him, is reported when he
// is authenticated, and ends with him. Whoever comes meanwhile finds another one, and takes the session over there.
// A transport with a picture to hand out waits for all its clients, also for those that have shown no password and do
// not listen: each neighbour's have a transport of their own.
#pragma once

#include "gate.h"
#include "service_link.h"

#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Doors {

/// The door of one session. On the loop's thread.
class SessionDoor : public Gate::Owner {
public:
    /// Who keeps the doors. Must outlive them.
    struct Owner {
        virtual ~Owner() = default;
        /// Asks the service for the session; answered() of the door with that number, if there still is one, follows.
        /// Asked twice before the question is put, it is put once.
        virtual void ask(uint32_t session) = 0;
        /// The door is of no more use. May destroy it.
        virtual void doorClosed(uint32_t session) = 0;
    };

    /// Closed at first. All that it is given must outlive it.
    SessionDoor(asio::io_context& loop, ServiceLink& service, const Options& options, Owner& owner, uint32_t session);

    /// Clients may come, the first within the limit if it is not zero. Waiting transports stay, with the hash line of
    /// today.
    void open(std::chrono::seconds limit);
    /// Another limit, if it still waits for its client.
    void limitWaiting(std::chrono::seconds limit);
    /// A client that wants in.
    void enter(const std::shared_ptr<Client>& client);
    /// The service's answer; nothing when it gave none.
    void answered(const std::optional<std::string>& json);
    /// The session has ended. Another may have taken its number meanwhile: the service is asked.
    void sessionEnded();
    /// Ends all transports for good. May destroy this object at once.
    void close();

    /// The session as it was told last; nothing before the first answer.
    [[nodiscard]] const std::optional<SessionInfo>& info() const { return info_; }

private:
    [[nodiscard]] bool needsGate() const;
    Gate* gateFor(const Address& from);
    void renewHashLines();
    void launch();
    void giveUp(const char* why);
    [[nodiscard]] long openGates() const;
    void startWaiting();
    void endGates();
    void closeIfEmpty();
    void gateOpened(Gate& gate) override;
    void clientCame(Gate& gate, const Client& client) override;
    void clientServed(Gate& gate, const Client& client, const LogEvent& security) override;
    void gateIdle(Gate& gate) override;
    void gateClosed(Gate& gate) override;

    asio::io_context& loop_;
    ServiceLink& service_;
    const Options& options_;
    Owner& owner_;
    uint32_t session_;
    bool wanted_ = false; ///< a transport that ends is followed by another
    std::optional<SessionInfo> info_;
    std::chrono::seconds limit_{0};
    Timer limitTimer_;
    Timer againTimer_;
    std::vector<std::shared_ptr<Client>> early_; ///< for whom there is no gate yet
    std::list<std::unique_ptr<Gate>> gates_;
    Gate* serving_ = nullptr; ///< the others wait for a client, or end
    std::set<Address> reported_; ///< neighbours the service was told of since the last client was served
};

} // namespace Doors
