// Plain sockets, descriptor tests and the wait for a socket file.
#pragma once

#include "file_descriptor.h"

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace Vard {

/// Socket operations; each answers a descriptor that the caller owns, or -1 after logging. Any thread.
namespace Socket {

/// Listens on an IPv4 address ("any": all interfaces). Close-on-exec.
int tcpListen(std::string_view address, uint16_t port, int backlog);
/// Connects to an IPv4 address.
int tcpConnect(std::string_view address, uint16_t port);
/// Accepts one connection; writes the peer's dotted address when `address` is not null.
int tcpAccept(int fd, std::string* address);
/// Connects to a local stream socket; a path over 107 bytes is cut to that after a warning.
int unixConnect(const std::string& path);

/// What a probe of a local socket path found.
enum class Probe {
    Absent, ///< nothing there
    Dead, ///< a socket on which nobody answers
    Live, ///< somebody accepts connections
    NoSocket, ///< something that is not a socket, or that cannot be examined
};

/// Tries to connect to a local socket without ever blocking; a final symbolic link counts as NoSocket. Logs
/// nothing.
Probe probeUnix(const std::string& path);

/// Connects to the local socket `path` without following a final link, and only keeps the connection when the listening
/// process has the user id `owner`. Close-on-exec. An empty result after logging.
FileDescriptor connectOwned(const std::string& path, uid_t owner);

} // namespace Socket

namespace Utils {

/// True when `fd` is readable within `timeout` milliseconds; false on time-out or a negative descriptor. Logs and
/// throws std::runtime_error("hasInput") on any other outcome.
bool hasInput(int fd, int timeout);
/// The number of bytes waiting on `fd`, 0 for a negative descriptor. Logs and throws std::runtime_error("hasData").
int64_t hasData(int fd);
/// Waits until `path` is a socket (a link is not one), looking every 100 ms; false after `seconds`, or when
/// `goOn` says so.
bool waitSocketSec(const std::filesystem::path& path, unsigned seconds, const std::function<bool()>& goOn = {});
/// Takes all permissions of group and others off the socket `path`, through a handle on the object itself: only if it
/// is a socket owned by `owner`. The members of `group`, when there is one, may then connect again. Logs and answers
/// false otherwise.
bool restrictSocket(const std::filesystem::path& path, uid_t owner, std::optional<gid_t> group = {});

} // namespace Utils
} // namespace Vard
