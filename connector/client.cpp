// A client's connection, from the outside to a transport.
#include "client.h"

#include "proxy_header.h"

#include <systemd/sd-journal.h>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

namespace Doors {

using namespace std::chrono_literals;

namespace {
constexpr auto greetLimit = 5s;
constexpr auto loginLimit = 20s;
constexpr auto lastWords = 2s; // for what one side still has to say when the other has ended
} // namespace

Client::Client(asio::io_context& loop, Tcp::socket socket, Address address, Lobby& lobby)
    : socket_(std::move(socket)), transport_(loop), address_(std::move(address)), lobby_(lobby), limit_(loop) {}

std::string Client::address() const { return plainAddress(address_).to_string(); }

void Client::greet() {
    limit_.start(greetLimit, [self = shared_from_this()] { self->close("no whole request in time"); });
    if (lobby_.isBalancer(address_)) {
        read(proxyHeaderBegin, &Client::proxyHeaderBegan);
    } else {
        readRequest();
    }
}

// Reads so many bytes more, and goes on there.
void Client::read(size_t count, void (Client::*next)()) {
    const size_t old = unread_.size();
    unread_.resize(old + count);
    asio::async_read(socket_, asio::buffer(unread_.data() + old, count),
                     [self = shared_from_this(), next](Failed failed, size_t /*count*/) {
                         if (failed) {
                             self->close();
                         } else if (!self->closed_) {
                             (self.get()->*next)();
                         }
                     });
}

// The same, of what has begun and is to be so long in all.
void Client::readRest(std::optional<size_t> length, void (Client::*next)(), const char* unknown) {
    if (length) {
        read(*length - unread_.size(), next);
    } else {
        close(unknown);
    }
}

void Client::proxyHeaderBegan() {
    readRest(proxyHeaderLength(unread_), &Client::proxyHeaderRead, "a balancer without its header");
}

void Client::proxyHeaderRead() {
    if (const auto proxied = proxiedAddress(std::exchange(unread_, {}), address_)) {
        address_ = *proxied;
        readRequest();
    } else {
        close("a balancer with an unknown kind of address");
    }
}

void Client::readRequest() {
    if (!lobby_.admit(address_)) {
        close();
        return;
    }
    place_ = lobby_.unread.enter(address_, [this] { turnAway(); });
    read(requestHeader, &Client::requestBegan);
}

void Client::requestBegan() { readRest(requestLength(unread_), &Client::requestRead, "no connection request"); }

void Client::requestRead() {
    auto request = parseConnectionRequest(std::exchange(unread_, {}));
    if (!request) {
        close("no connection request");
        return;
    }
    request_ = std::move(*request);
    place_ = lobby_.strangers.enter(address_, [this] { turnAway(); });
    limit_.start(loginLimit, [self = shared_from_this()] { self->close("not authenticated in time"); });
    lobby_.place(shared_from_this());
}

void Client::join(Local::socket transport) {
    transport_ = std::move(transport);
    copy(socket_, transport_, std::make_shared<Block>());
    copy(transport_, socket_, std::make_shared<Block>());
}

template <typename From, typename To>
void Client::copy(From& from, To& to, const std::shared_ptr<Block>& block) {
    from.async_read_some(asio::buffer(*block), [=, &from, &to, self = shared_from_this()](Failed ended, size_t count) {
        if (ended) {
            self->oneWayEnded(to);
            return;
        }
        asio::async_write(to, asio::buffer(block->data(), count), [=, &from, &to](Failed failed, size_t /*count*/) {
            failed ? self->oneWayEnded(to) : self->copy(from, to, block);
        });
    });
}

// The other direction may still bring why.
template <typename To>
void Client::oneWayEnded(To& to) {
    Failed ignored;
    to.shutdown(To::shutdown_send, ignored);
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
    if (!why.empty() && lobby_.worthALine(address_)) {
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
