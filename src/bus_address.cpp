// The address of a session bus, as the bus's launcher leaves it in a file.
#include "bus_address.h"

#include <sstream>
#include <string_view>

namespace Vard {

namespace {
constexpr std::string_view addressKey = "DBUS_SESSION_BUS_ADDRESS=";
} // namespace

std::optional<std::string> busAddressIn(const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(addressKey)) {
            const size_t quotes = addressKey.size() + 2;
            return line.size() > quotes ? line.substr(addressKey.size() + 1, line.size() - quotes) : "";
        }
    }
    return std::nullopt;
}

} // namespace Vard
