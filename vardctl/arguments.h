// What the words on the command line mean. Wrong ones throw Failure with the code of wrong usage.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace Vardctl {

/// A decimal number without leading zeros, blanks or sign; nothing for any other word.
std::optional<uint32_t> decimal(const std::string& word);

/// A session by its id, or the sessions of a user by the name.
using Target = std::variant<uint32_t, std::string>;

/// A number that is written in decimal digits is a session id, anything else a user's name. With `forceUser` digits are
/// a name, too.
Target chooseTarget(const std::string& word, bool forceUser);

/// A user's name: any word that is not empty.
const std::string& userName(const std::string& word);

/// A screen's size in pixels.
struct Size {
    uint16_t width = 1280;
    uint16_t height = 1024;

    /// As in 1280x1024.
    [[nodiscard]] std::string text() const { return std::to_string(width) + "x" + std::to_string(height); }
};

/// Reads WIDTHxHEIGHT.
Size screenSize(const std::string& word);

/// The service's own word for a level: it always writes errors, warnings and notices, and calls that "none".
std::string logLevel(const std::string& word);

} // namespace Vardctl
