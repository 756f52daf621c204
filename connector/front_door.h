// The one door to the network.
#pragma once

#include "client.h"

#include <vector>

namespace Doors {

/// Listens and takes clients in. On the loop's thread.
class FrontDoor {
public:
    /// Listens on every address of the options; the clients go into the lobby. Throws std::runtime_error with the
    /// address when one cannot be had.
    FrontDoor(asio::io_context& loop, const Options& options, Lobby& lobby);
    FrontDoor(const FrontDoor&) = delete;
    FrontDoor& operator=(const FrontDoor&) = delete;

    /// Takes no more clients.
    void close();

private:
    void listenOn(const Tcp::endpoint& place);
    void accept(Tcp::acceptor& acceptor);
    void accepted(Tcp::acceptor& acceptor, const Failed& failed, Tcp::socket socket);

    asio::io_context& loop_;
    Lobby& lobby_;
    std::vector<Tcp::acceptor> acceptors_;
    Timer pause_;
};

} // namespace Doors
