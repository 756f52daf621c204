// Addresses and networks as an administrator writes them.
#pragma once

#include "loop.h"

#include <optional>
#include <string>

namespace Doors {

/// The address itself: an IPv4 address out of its IPv6 clothes, a link-local one without the interface behind it.
Address plainAddress(const Address& address);

/// What counts as one neighbour: an IPv4 address, or the 56 bits that a household has of the IPv6 addresses, of which
/// it may use as many as it likes. This machine's users may do so with its own, which are all one. An IPv4 address in
/// IPv6 clothes is the former.
Address neighbour(const Address& address);

/// The addresses that begin alike.
class Network {
public:
    /// Reads "192.0.2.0/24", "2001:db8::/32" or one address; nothing when it is none of these.
    static std::optional<Network> parse(const std::string& text);
    /// True for one of them, also in IPv6 clothes.
    [[nodiscard]] bool contains(const Address& address) const;

private:
    asio::ip::address_v6::bytes_type begin_{}; ///< an IPv4 address in IPv6 clothes
    unsigned bits_ = 0;
};

/// Reads "192.0.2.1:3389", "[2001:db8::1]:3389", or ":3389" for all addresses; nothing when it is none of these.
std::optional<Tcp::endpoint> parseEndpoint(const std::string& text);

} // namespace Doors
