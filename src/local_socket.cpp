// Local sockets: whose they are, whether somebody answers, and the wait for one.
#include "local_socket.h"

#include "deadline.h"
#include "logger.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

namespace Vard {

namespace {

constexpr size_t longestPath = sizeof(sockaddr_un::sun_path) - 1;

const sockaddr* raw(const sockaddr_un& address) { return reinterpret_cast<const sockaddr*>(&address); }

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

bool Utils::waitSocketSec(const std::filesystem::path& path, unsigned seconds, const std::function<bool()>& goOn) {
    constexpr std::chrono::milliseconds usual{100};
    constexpr std::chrono::milliseconds close{5};
    const auto end = Deadline::in(std::chrono::seconds(seconds));
    const auto closely = Deadline::in(usual); // most are there much sooner than the usual look
    for (;;) {
        std::error_code ignored;
        if (std::filesystem::symlink_status(path, ignored).type() == std::filesystem::file_type::socket) {
            return true;
        }
        if (end.passed() || (goOn && !goOn())) {
            return false;
        }
        std::this_thread::sleep_for(closely.passed() ? usual : close);
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
