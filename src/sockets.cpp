// Plain sockets, descriptor tests and the wait for a socket file.
#include "sockets.h"

#include "deadline.h"
#include "logger.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace Vard {

namespace {

constexpr size_t longestPath = sizeof(sockaddr_un::sun_path) - 1;

sockaddr_in ipv4(in_addr_t address, uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_addr.s_addr = address;
    result.sin_port = htons(port);
    return result;
}

template <typename Address>
const sockaddr* raw(const Address& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

/// The address of a local socket and its size.
std::pair<sockaddr_un, socklen_t> localAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), std::min(path.size(), longestPath));
    return {address, sizeof address};
}

/// A handle on the object at `path` itself, for a look at it that nobody can divert by a link.
FileDescriptor openObject(const std::string& path) {
    return FileDescriptor(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
}

std::string throughHandle(const FileDescriptor& handle) { return "/proc/self/fd/" + std::to_string(handle.get()); }

bool isSocket(const FileDescriptor& handle, struct stat& info) {
    return handle && ::fstat(handle.get(), &info) == 0 && S_ISSOCK(info.st_mode);
}

FileDescriptor localSocket(int flags) {
    return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

Socket::Probe probeAddress(const std::string& path) {
    const FileDescriptor socket = localSocket(SOCK_NONBLOCK);
    const auto [address, length] = localAddress(path);
    if (!socket) {
        return Socket::Probe::NoSocket;
    }
    // A full queue is a sign of life, too.
    if (::connect(socket.get(), raw(address), length) == 0 || errno == EAGAIN || errno == EINPROGRESS) {
        return Socket::Probe::Live;
    }
    return errno == ECONNREFUSED ? Socket::Probe::Dead
           : errno == ENOENT     ? Socket::Probe::Absent
                                 : Socket::Probe::NoSocket;
}

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

int Socket::unixConnect(const std::string& path) {
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    if (!socket) {
        Utils::syslogErrno("unixConnect", "socket", errno);
        return -1;
    }
    if (path.size() > longestPath) {
        Syslog::warning("%s: unix path is long, truncated to size: %d", "unixConnect", static_cast<int>(longestPath));
    }
    Syslog::debug("%s: path: %s", "unixConnect", path.c_str());
    const auto [address, length] = localAddress(path);
    if (::connect(socket.get(), raw(address), length) != 0) {
        Utils::syslogErrno("unixConnect", "connect", errno);
        return -1;
    }
    Syslog::debug("%s: fd: %d", "unixConnect", socket.get());
    return socket.release();
}

Socket::Probe Socket::probeUnix(const std::string& path) {
    const FileDescriptor object = openObject(path);
    if (!object) {
        return errno == ENOENT ? Probe::Absent : Probe::NoSocket;
    }
    struct stat info {};
    return isSocket(object, info) ? probeAddress(throughHandle(object)) : Probe::NoSocket;
}

FileDescriptor Socket::connectOwned(const std::string& path, uid_t owner) {
    const FileDescriptor object = openObject(path);
    struct stat info {};
    if (!isSocket(object, info)) {
        Syslog::error("%s: not a socket: %s", "connectOwned", path.c_str());
        return {};
    }
    FileDescriptor socket = localSocket(SOCK_NONBLOCK); // a full queue is a failed attempt, not a wait
    const auto [address, length] = localAddress(throughHandle(object));
    if (!socket || ::connect(socket.get(), raw(address), length) != 0) {
        Utils::syslogErrno("connectOwned", "connect", errno);
        return {};
    }
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != owner) {
        Syslog::error("%s: peer is not the session's user, path: %s, uid: %u", "connectOwned", path.c_str(), peer.uid);
        return {};
    }
    return socket;
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

bool Utils::waitSocketSec(const std::filesystem::path& path, unsigned seconds, const std::function<bool()>& goOn) {
    const auto end = Deadline::in(std::chrono::seconds(seconds));
    for (;;) {
        std::error_code ignored;
        if (std::filesystem::symlink_status(path, ignored).type() == std::filesystem::file_type::socket) {
            return true;
        }
        if (end.passed() || (goOn && !goOn())) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

bool Utils::restrictSocket(const std::filesystem::path& path, uid_t owner, std::optional<gid_t> group) {
    const FileDescriptor object = openObject(path);
    struct stat info {};
    if (!isSocket(object, info) || info.st_uid != owner) {
        Syslog::error("%s: not a socket of the session's user: %s", "restrictSocket", path.c_str());
        return false;
    }
    const auto setMode = [&](mode_t mode) { return ::chmod(throughHandle(object).c_str(), mode) == 0; };
    const mode_t own = info.st_mode & S_IRWXU;
    const auto keep = static_cast<uid_t>(-1);
    // The group is changed while nobody of it may connect.
    if (!setMode(own) || (group && (::fchownat(object.get(), "", keep, *group, AT_EMPTY_PATH) != 0 ||
                                    !setMode(own | S_IRGRP | S_IWGRP)))) {
        Utils::syslogErrno("restrictSocket", "chmod", errno);
        return false;
    }
    return true;
}

} // namespace Vard
