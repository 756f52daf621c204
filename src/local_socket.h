// Local sockets: whose they are, whether somebody answers, and the wait for one.
#pragma once

#include "file_descriptor.h"

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace Vard {

/// Operations for any thread.
namespace Socket {

/// Connects to a local stream socket; a path over 107 bytes is cut to that after a warning. A descriptor that the
/// caller owns, or -1 after logging.
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

/// Waits until `path` is a socket (a link is not one), looking every 100 ms, and more closely at first; false after
/// `seconds`, or when `goOn` says so.
bool waitSocketSec(const std::filesystem::path& path, unsigned seconds, const std::function<bool()>& goOn = {});
/// Takes all permissions of group and others off the socket `path`, through a handle on the object itself: only if it
/// is a socket owned by `owner`. The members of `group`, when there is one, may then connect again. Logs and answers
/// false otherwise.
bool restrictSocket(const std::filesystem::path& path, uid_t owner, std::optional<gid_t> group = {});

} // namespace Utils
} // namespace Vard
