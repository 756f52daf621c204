// What the words on the command line mean. Wrong ones throw Failure with the code of wrong usage.
#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace Vardctl {

/// A session by its id, or the sessions of a user by the name.
using Target = std::variant<uint32_t, std::string>;

/// A number that is written in decimal digits is a session id, anything else a user's name. With `forceUser` digits are
/// a name, too.
Target chooseTarget(const std::string& word, bool forceUser);

/// A user's name: any word that is not empty.
const std::string& userName(const std::string& word);

/// A session id.
uint32_t sessionId(const std::string& word);

/// A decimal number without leading zeros, blanks or sign. `what` names it in the failure.
uint32_t number(const std::string& word, uint32_t least, uint32_t greatest, const std::string& what);

/// A screen's size in pixels.
struct Size {
    uint16_t width = 0;
    uint16_t height = 0;

    bool operator==(const Size&) const = default;
};

/// Reads WIDTHxHEIGHT.
Size screenSize(const std::string& word);

/// The service's own word for a level: it always writes errors, warnings and notices, and calls that "none".
std::string logLevel(const std::string& word);

} // namespace Vardctl
