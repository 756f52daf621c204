// The one door to the network.
#pragma once

#include "client.h"

#include <list>

namespace Doors {

/// Listens and takes clients in. On the loop's thread.
class FrontDoor {
public:
    /// Listens on the sockets that the service manager hands over and on every address of the options, or else on port
    /// 3389 of all addresses; the clients go into the lobby. Throws std::runtime_error with the address when one cannot
    /// be had.
    FrontDoor(asio::io_context& loop, const Options& options, Lobby& lobby);
    FrontDoor(const FrontDoor&) = delete;
    FrontDoor& operator=(const FrontDoor&) = delete;

    /// Takes no more clients.
    void close();

private:
    struct Listener {
        explicit Listener(asio::io_context& loop) : acceptor(loop), pause(loop) {}
        Tcp::acceptor acceptor;
        Timer pause; ///< while there is no descriptor for another client
    };
    void listenOn(const Tcp::endpoint& place);
    void takeSocket(int socket);
    void accept(Listener& listener);
    void accepted(Tcp::socket socket);

    asio::io_context& loop_;
    Lobby& lobby_;
    std::list<Listener> listeners_;
};

} // namespace Doors
