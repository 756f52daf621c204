// A client's connection, from the outside to a transport.
#include "client.h"

#include "proxy_header.h"

#include <systemd/sd-journal.h>
#include <boost/asio/read.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/write.hpp>

#include <stdexcept>

namespace Doors {

using namespace std::chrono_literals;
using asio::use_awaitable;

namespace {

constexpr auto greetLimit = 5s;
constexpr auto loginLimit = 20s;
constexpr auto lastWords = 2s; // for what one side still has to say when the other has ended
constexpr size_t blockSize = size_t{16} * 1024;

/// What the peer sent is no beginning that we know.
struct Refused : std::runtime_error {
    using runtime_error::runtime_error;
};

} // namespace

Client::Client(asio::io_context& loop, Tcp::socket socket, Address address, Lobby& lobby)
    : loop_(loop),
      socket_(std::move(socket)),
      transport_(loop),
      address_(std::move(address)),
      lobby_(lobby),
      limit_(loop) {}

std::string Client::address() const {
    return neighbour(address_).is_v4() ? neighbour(address_).to_string() : address_.to_string();
}

void Client::greet() {
    limit_.start(greetLimit, [self = shared_from_this()] { self->close("no whole request in time"); });
    const auto ended = [self = shared_from_this()](const std::exception_ptr& failed) {
        try {
            if (failed) {
                std::rethrow_exception(failed);
            }
        } catch (const Refused& refused) {
            self->close(refused.what());
        } catch (const std::exception&) { // it left, or was closed
            self->close();
        }
    };
    asio::co_spawn(loop_, readRequest(), ended);
}

void Client::settle() {
    if (!lobby_.admit(address_)) {
        throw std::runtime_error("turned away");
    }
    place_ = lobby_.unread.enter(address_, [this] { turnAway(); });
}

asio::awaitable<void> Client::readRequest() {
    if (lobby_.isBalancer(address_)) {
        co_await readProxyHeader();
    }
    settle();
    auto packet = co_await read(requestHeader, "");
    const auto length = requestLength(packet);
    if (!length) {
        throw Refused("no connection request");
    }
    packet = co_await read(*length - requestHeader, std::move(packet));
    auto request = parseConnectionRequest(packet);
    if (!request) {
        throw Refused("no connection request");
    }
    request_ = std::move(*request);
    place_ = lobby_.strangers.enter(address_, [this] { turnAway(); });
    limit_.start(loginLimit, [self = shared_from_this()] { self->close("not authenticated in time"); });
    lobby_.place(shared_from_this());
}

asio::awaitable<void> Client::readProxyHeader() {
    auto header = co_await read(proxyHeaderBegin, "");
    const auto length = proxyHeaderLength(header);
    if (!length) {
        throw Refused("a balancer without its header");
    }
    header = co_await read(*length - proxyHeaderBegin, std::move(header));
    const auto proxied = proxiedAddress(header, address_);
    if (!proxied) {
        throw Refused("a balancer with an unknown kind of address");
    }
    address_ = *proxied;
}

asio::awaitable<std::string> Client::read(size_t count, std::string before) {
    const size_t old = before.size();
    before.resize(old + count);
    co_await asio::async_read(socket_, asio::buffer(before.data() + old, count), use_awaitable);
    co_return before;
}

void Client::join(Local::socket transport) {
    transport_ = std::move(transport);
    const auto ended = [self = shared_from_this()](const std::exception_ptr&) { self->oneWayEnded(); };
    asio::co_spawn(loop_, copy(socket_, transport_), ended);
    asio::co_spawn(loop_, copy(transport_, socket_), ended);
}

template <typename From, typename To>
asio::awaitable<void> Client::copy(From& from, To& to) {
    std::array<char, blockSize> block; // NOLINT(*-member-init): only what was read into it is read
    Failed failed;
    while (!failed) {
        const size_t count =
            co_await from.async_read_some(asio::buffer(block), asio::redirect_error(use_awaitable, failed));
        if (!failed) {
            co_await asio::async_write(to, asio::buffer(block.data(), count),
                                       asio::redirect_error(use_awaitable, failed));
        }
    }
    Failed ignored;
    to.shutdown(To::shutdown_send, ignored);
}

// The other direction may still bring why.
void Client::oneWayEnded() {
    if (std::exchange(halfOpen_, true)) {
        close();
    } else if (!closed_) {
        limit_.start(lastWords, [self = shared_from_this()] { self->close(); });
    }
}

void Client::authenticated() {
    limit_.cancel();
    place_.giveBack();
}

void Client::turnAway() {
    lobby_.turnedAway(address_);
    close();
}

void Client::close(const std::string& why) {
    if (std::exchange(closed_, true)) {
        return;
    }
    if (!why.empty()) {
        sd_journal_print(LOG_NOTICE, "client: %s, closed: %s", address().c_str(), why.c_str());
    }
    limit_.cancel();
    place_.giveBack();
    Failed ignored;
    socket_.close(ignored);
    transport_.close(ignored);
    if (const auto run = std::exchange(whenClosed_, nullptr)) {
        run();
    }
}

} // namespace Doors
