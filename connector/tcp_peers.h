// Ports and the peers on them.
#pragma once

#include <cstdint>
#include <istream>
#include <set>
#include <string>

namespace Doors {

/// The peers' addresses in a text as of /proc/net/tcp and tcp6: of every connection to the local port, also of one that
/// has just been closed.
std::set<std::string> tcpPeers(std::istream& table, uint16_t port);

/// The same for the machine's own tables.
std::set<std::string> tcpPeers(uint16_t port);

/// True when a program could listen on the port now; an empty address means all.
bool portIsFree(const std::string& address, uint16_t port);

} // namespace Doors
