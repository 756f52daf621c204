// TCP sockets, and what waits in a descriptor. Programs built on these rooms are to find them here; the service listens
// nowhere and calls none of it.
#include "tcp_socket.h"

#include "file_descriptor.h"
#include "logger.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace Vard {

namespace {

sockaddr_in ipv4(in_addr_t address, uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_addr.s_addr = address;
    result.sin_port = htons(port);
    return result;
}

const sockaddr* raw(const sockaddr_in& address) { return reinterpret_cast<const sockaddr*>(&address); }

} // namespace

int Socket::tcpListen(std::string_view address, uint16_t port, int backlog) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        Utils::syslogErrno("tcpListen", "socket", errno);
        return -1;
    }
    const int on = 1;
    const int result = ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (result != 0) {
        Syslog::warning("%s: socket reuseaddr failed, error: %s, code: %d", "tcpListen", std::strerror(errno), result);
    }
    const std::string name(address);
    const auto bound = ipv4(name == "any" ? htonl(INADDR_ANY) : ::inet_addr(name.c_str()), port);
    Syslog::debug("%s: bind addr: %s, port: %d", "tcpListen", name.c_str(), port);
    if (::bind(fd, raw(bound), sizeof bound) != 0) {
        Utils::syslogErrno("tcpListen", "bind", errno);
        return -1; // left open, as its callers expect
    }
    Syslog::debug("%s: listen: %d, conn: %d", "tcpListen", fd, backlog);
    if (::listen(fd, backlog) != 0) {
        Utils::syslogErrno("tcpListen", "listen", errno);
        ::close(fd);
        return -1;
    }
    return fd;
}

int Socket::tcpConnect(std::string_view address, uint16_t port) {
    FileDescriptor socket(::socket(AF_INET, SOCK_STREAM, 0));
    if (!socket) {
        Utils::syslogErrno("tcpConnect", "socket", errno);
        return -1;
    }
    const std::string name(address);
    Syslog::debug("%s: ipaddr: %s, port: %u", "tcpConnect", name.c_str(), port);
    const auto peer = ipv4(::inet_addr(name.c_str()), port);
    if (::connect(socket.get(), raw(peer), sizeof peer) != 0) {
        Utils::syslogErrno("tcpConnect", "connect", errno);
        return -1;
    }
    Syslog::debug("%s: fd: %d", "tcpConnect", socket.get());
    return socket.release();
}

int Socket::tcpAccept(int fd, std::string* address) {
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    const int accepted = ::accept(fd, reinterpret_cast<sockaddr*>(&peer), &length);
    if (accepted < 0) {
        Utils::syslogErrno("tcpAccept", "accept", errno);
        return -1;
    }
    if (address != nullptr) {
        std::array<char, INET_ADDRSTRLEN> text{};
        if (::inet_ntop(AF_INET, &peer.sin_addr, text.data(), text.size()) != nullptr) {
            *address = text.data();
        } else {
            Syslog::warning("%s: %s failed, error: %s, code: %d", "tcpAccept", "inet_ntop", std::strerror(errno),
                            errno);
        }
    }
    return accepted;
}

bool Utils::hasInput(int fd, int timeout) {
    if (fd < 0) {
        return false;
    }
    pollfd entry{fd, POLLIN, 0};
    errno = 0; // a hang-up is no error of poll's and would leave an old one in place
    const int ready = ::poll(&entry, 1, timeout);
    if (ready == 0) {
        return false;
    }
    if (ready > 0 && (entry.revents & POLLIN) != 0) {
        return true;
    }
    if (errno == EINTR) {
        return hasInput(fd, timeout);
    }
    Utils::syslogErrno("hasInput", "pool", errno);
    throw std::runtime_error("hasInput");
}

int64_t Utils::hasData(int fd) {
    if (fd < 0) {
        return 0;
    }
    int count = 0;
    if (::ioctl(fd, FIONREAD, &count) < 0) {
        Utils::syslogErrno("hasData", "ioctl", errno);
        throw std::runtime_error("hasData");
    }
    return std::max(count, 0);
}

} // namespace Vard
