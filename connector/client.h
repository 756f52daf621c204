// A client's connection, from the outside to a transport.
#pragma once

#include "connection_request.h"
#include "lobby.h"
#include "loop.h"

#include <array>
#include <memory>
#include <optional>
#include <string>

namespace Doors {

/// A connection that was taken from outside. It lives as long as it is open. On the loop's thread.
class Client : public std::enable_shared_from_this<Client> {
public:
    /// The lobby must outlive the loop, which may keep clients to its end.
    Client(asio::io_context& loop, Tcp::socket socket, Address address, Lobby& lobby);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Reads the first packet, within five seconds, and hands itself on.
    void greet();
    /// Its address, in numbers. Behind a balancer it is known when the first packet has been read.
    [[nodiscard]] std::string address() const;
    /// The same as it is, for counting.
    [[nodiscard]] const Address& origin() const { return address_; }
    /// What its first packet asks for.
    [[nodiscard]] const ConnectionRequest& request() const { return request_; }
    /// Calls `run`, and nothing that was given before, once when the connection is closed, whoever does so.
    void whenClosed(std::function<void()> run) { whenClosed_ = std::move(run); }

    /// From now on every byte is handed on both ways, until either side ends; the first packet was, before.
    void join(Local::socket transport);
    /// It has shown a password: it may stay, and counts among the strangers no more.
    void authenticated();
    /// Ends the connection. With a reason, that is logged.
    void close(const std::string& why = {});
    /// Ends it for the sake of others; the journal is told how many there were.
    void turnAway();
    /// True once it was closed.
    [[nodiscard]] bool closed() const { return closed_; }

private:
    using Block = std::array<char, size_t{16} * 1024>;

    void read(size_t count, void (Client::*next)());
    void readRest(std::optional<size_t> length, void (Client::*next)(), const char* unknown);
    void proxyHeaderBegan();
    void proxyHeaderRead();
    void readRequest();
    void requestBegan();
    void requestRead();
    template <typename From, typename To>
    void copy(From& from, To& to, const std::shared_ptr<Block>& block);
    template <typename To>
    void oneWayEnded(To& to);

    Tcp::socket socket_;
    Local::socket transport_;
    Address address_;
    Lobby& lobby_;
    std::string unread_; ///< what it has sent, before it is joined
    ConnectionRequest request_;
    Crowd::Place place_;
    Timer limit_;
    std::function<void()> whenClosed_;
    bool halfOpen_ = false; ///< one of the sides has ended
    bool closed_ = false;
};

} // namespace Doors
