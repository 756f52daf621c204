// Where clients wait until they have shown a password.
#pragma once

#include "admission.h"
#include "options.h"

#include <functional>
#include <memory>

namespace Doors {

class Client;

/// What the door's limits count, and who gets the clients that have said what they want. On the loop's thread.
class Lobby {
public:
    using Placing = std::function<void(const std::shared_ptr<Client>& client)>;

    /// The options must outlive it.
    explicit Lobby(const Options& options);

    /// True for a balancer that tells, ahead of everything, whose connection it hands on.
    [[nodiscard]] bool isBalancer(const Address& address) const;
    /// Whether one more from there may come in now; one that may not counts as turned away.
    bool admit(const Address& address);
    /// One had to go because there were too many. The journal is told from time to time.
    void turnedAway(const Address& address);

    /// Whether the journal may have another line about a client from there: a flood must not fill it.
    bool worthALine(const Address& address) { return lines_.admit(address); }

    Crowd unread; ///< clients whose first packet is not there yet
    Crowd strangers; ///< those who have not shown a password yet
    Placing place; ///< gets a client whose first packet was read: to be joined to a transport, or closed

private:
    const Options& options_;
    Arrivals arrivals_;
    Arrivals lines_{1, 20};
    size_t turnedAway_ = 0; ///< since the journal was told last
    Arrivals::Clock::time_point told_{};
};

} // namespace Doors
