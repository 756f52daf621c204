// What a door needs to know of its session.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Doors {

/// One session, as the service tells it.
struct SessionInfo {
    std::string username;
    std::string xauthfile; ///< the path of its X authority file
    std::string hashLine; ///< by which its user is recognised; not checked
    uint32_t display = 0; ///< its number
    int64_t start = 0; ///< in seconds since 1970
    bool desktop = true; ///< not a single program
};

/// True for a line of a SAM file, "user:domain:LM hash:NT hash:::", of that very user. The line comes from a file that
/// the user can write, and goes to a parser in C.
bool validHashLine(const std::string& line, const std::string& username);

/// The session of the service's JSON text; nothing for "{}" (no such session) and for a text that is none. Whether the
/// hash line is any good is the caller's question.
std::optional<SessionInfo> parseSessionInfo(const std::string& text);

} // namespace Doors
