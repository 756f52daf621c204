// One connection to the door, made by hand.
#include "visitor.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <system_error>

namespace Bench {

std::string connectionRequest(const std::string& text) {
    const std::string security("\x01\x00\x08\x00\x03\x00\x00\x00", 8);
    const std::string rest = std::string("\xE0\x00\x00\x00\x00\x00", 6) + text + "\r\n" + security;
    const std::string begin("\x03\x00\x00", 3);
    return begin + static_cast<char>(rest.size() + 5) + static_cast<char>(rest.size()) + rest;
}

Visitor::Visitor(uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (::connect(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw std::system_error(errno, std::generic_category(), "connect");
    }
    const int on = 1;
    ::setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const timeval hang{.tv_sec = 60, .tv_usec = 0};
    ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &hang, sizeof hang);
}

// Whoever is turned away may hear of it only here.
void Visitor::say(const std::string& bytes) const {
    (void)!::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

bool Visitor::hear(size_t count) const {
    std::array<char, 4096> block{};
    while (count > 0) {
        const ssize_t got = ::recv(socket_.get(), block.data(), std::min(count, block.size()), 0);
        if (got < 0 && errno == EAGAIN) {
            throw std::runtime_error("neither an answer nor an end for a minute");
        }
        if (got <= 0) {
            return false;
        }
        count -= static_cast<size_t>(got);
    }
    return true;
}

size_t Visitor::listenFor(double seconds) const {
    static std::array<char, size_t{256} * 1024> block;
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    size_t sum = 0;
    while (std::chrono::steady_clock::now() < end) {
        sum += static_cast<size_t>(std::max<ssize_t>(0, ::recv(socket_.get(), block.data(), block.size(), 0)));
    }
    return sum;
}

bool Visitor::sentAway() const {
    pollfd wanted{.fd = socket_.get(), .events = POLLRDHUP, .revents = 0};
    return ::poll(&wanted, 1, 0) > 0;
}

} // namespace Bench
