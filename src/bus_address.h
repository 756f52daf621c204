// The address of a session bus, as the bus's launcher leaves it in a file.
#pragma once

#include <optional>
#include <string>

namespace Vard {

/// The address that the text of a session bus address file holds: the first line of the key
/// "DBUS_SESSION_BUS_ADDRESS=", without the key, the quote behind it and the quote at its end, which are not looked at.
/// Nothing when no line has the key; empty when the line has nothing between its quotes. Never throws for what stands
/// in the text, which need not be valid UTF-8. Any thread.
std::optional<std::string> busAddressIn(const std::string& text);

} // namespace Vard
