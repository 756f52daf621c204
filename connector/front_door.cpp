// The one door to the network.
#include "front_door.h"

#include <netinet/tcp.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-journal.h>
#include <boost/asio/ip/v6_only.hpp>

#include <algorithm>
#include <stdexcept>

namespace Doors {

using namespace std::chrono_literals;

namespace {

constexpr auto scarcityPause = 100ms;

std::string text(const Tcp::endpoint& place) {
    const auto address = place.address().to_string();
    return (place.address().is_v6() ? "[" + address + "]" : address) + ":" + std::to_string(place.port());
}

void setUp(Tcp::acceptor& acceptor, const Tcp::endpoint& place) {
    acceptor.open(place.protocol());
    acceptor.set_option(Tcp::acceptor::reuse_address(true)); // connections of an earlier connector linger
    if (place.address().is_v6()) {
        acceptor.set_option(asio::ip::v6_only(!place.address().is_unspecified()));
    }
    acceptor.bind(place);
    acceptor.listen();
    acceptor.non_blocking(true);
}

// A client that vanished without a word is given up after 25 seconds, whether anything is on its way or not.
void setUp(Tcp::socket& socket) {
    const auto set = [&socket](int level, int option, int value) {
        ::setsockopt(socket.native_handle(), level, option, &value, sizeof value);
    };
    set(IPPROTO_TCP, TCP_NODELAY, 1);
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, 10);
    set(IPPROTO_TCP, TCP_KEEPINTVL, 5);
    set(IPPROTO_TCP, TCP_KEEPCNT, 3);
    set(IPPROTO_TCP, TCP_USER_TIMEOUT, 25'000);
}

} // namespace

FrontDoor::FrontDoor(asio::io_context& loop, const Options& options, Lobby& lobby) : loop_(loop), lobby_(lobby) {
    const int passed = sd_listen_fds(1);
    for (int i = 0; i < passed; ++i) {
        takeSocket(SD_LISTEN_FDS_START + i);
    }
    std::ranges::for_each(options.listen, [this](const auto& one) { listenOn(one); });
    if (listeners_.empty()) {
        listenOn(*parseEndpoint(":3389"));
    }
}

void FrontDoor::listenOn(const Tcp::endpoint& place) {
    auto& listener = listeners_.emplace_back(loop_);
    try {
        setUp(listener.acceptor, place);
    } catch (const boost::system::system_error& failed) {
        throw std::runtime_error("cannot listen on " + text(place) + ": " + failed.code().message());
    }
    sd_journal_print(LOG_INFO, "listening on %s", text(place).c_str());
    accept(listener);
}

void FrontDoor::takeSocket(int socket) {
    const bool six = sd_is_socket_inet(socket, AF_INET6, SOCK_STREAM, 1, 0) > 0;
    if (!six && sd_is_socket_inet(socket, AF_INET, SOCK_STREAM, 1, 0) <= 0) {
        throw std::runtime_error("the service manager's socket " + std::to_string(socket) + " is not one for TCP");
    }
    auto& listener = listeners_.emplace_back(loop_);
    listener.acceptor.assign(six ? Tcp::v6() : Tcp::v4(), socket);
    listener.acceptor.non_blocking(true);
    sd_journal_print(LOG_INFO, "listening on %s", text(listener.acceptor.local_endpoint()).c_str());
    accept(listener);
}

void FrontDoor::close() { listeners_.clear(); }

void FrontDoor::accept(Listener& listener) {
    listener.acceptor.async_accept([this, &listener](Failed failed, Tcp::socket socket) {
        if (listeners_.empty()) {
            return; // closed meanwhile
        }
        if (failed && failed != asio::error::connection_aborted) { // no descriptors, or no memory
            listener.pause.start(scarcityPause, [this, &listener] { accept(listener); });
            return;
        }
        accept(listener); // first: whatever comes of this client, others follow
        if (!failed) {
            accepted(std::move(socket));
        }
    });
}

void FrontDoor::accepted(Tcp::socket socket) {
    Failed gone;
    const auto peer = socket.remote_endpoint(gone);
    if (!gone) {
        setUp(socket);
        std::make_shared<Client>(loop_, std::move(socket), peer.address(), lobby_)->greet();
    }
}

} // namespace Doors
