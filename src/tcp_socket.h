// TCP sockets, and what waits in a descriptor. Programs built on these rooms are to find them here; the service listens
// nowhere and calls none of it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Vard {

/// Each operation answers a descriptor that the caller owns, or -1 after logging. Any thread.
namespace Socket {

/// Listens on an IPv4 address ("any": all interfaces). Close-on-exec.
int tcpListen(std::string_view address, uint16_t port, int backlog);
/// Connects to an IPv4 address.
int tcpConnect(std::string_view address, uint16_t port);
/// Accepts one connection; writes the peer's dotted address when `address` is not null.
int tcpAccept(int fd, std::string* address);

} // namespace Socket

namespace Utils {

/// True when `fd` is readable within `timeout` milliseconds; false on time-out or a negative descriptor. Logs and
/// throws std::runtime_error("hasInput") on any other outcome.
bool hasInput(int fd, int timeout);
/// The number of bytes waiting on `fd`, 0 for a negative descriptor. Logs and throws std::runtime_error("hasData").
int64_t hasData(int fd);

} // namespace Utils
} // namespace Vard
