// The first packet of a remote-desktop client.
//
// A connection request of X.224 in a TPKT, whose variable part may name the user ("Cookie: mstshash=NAME") or carry a
// routing token, the text that a .rdp file has as "loadbalanceinfo"; then what kinds of security the client can do:
//   03 00 LENGTH(2) | LENGTH(1) E0 00 00 SOURCE(2) CLASS(1) | TEXT 0D 0A | 01 FLAGS(1) 08 00 PROTOCOLS(4) | ...
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Doors {

/// What a client asks for.
struct ConnectionRequest {
    std::string user; ///< as it stands in the cookie; empty for none
    std::optional<uint32_t> session; ///< which the token "vard-session=NUMBER" names; ";" and more may follow
    std::string packet; ///< for the transport, which takes no token: without it
};

inline constexpr size_t requestHeader = 4; ///< so many bytes say how long it is
inline constexpr size_t longestRequest = 4096; ///< longer ones are none

/// The length of the whole packet that begins so, from the header's bytes on; nothing when it is none, or too long.
std::optional<size_t> requestLength(const std::string& begin);

/// Reads a packet of that length; nothing when it is no connection request. A text of another kind names nobody.
std::optional<ConnectionRequest> parseConnectionRequest(const std::string& packet);

/// How well a cookie's text names a user: by the very name; without "DOMAIN\" before, "@domain" behind and regard to
/// capitals, on either side; or with the beginning of the name, when the text is of the nine characters to which some
/// clients cut it.
enum class UserMatch { None, Cut, Plain, Exact };
UserMatch matchUser(const std::string& text, const std::string& username);

} // namespace Doors
