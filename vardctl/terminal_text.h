// Texts as a terminal may see them. Names, addresses and programs of sessions come from users, who may put control
// characters into them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Vardctl {

/// Makes the process read texts as UTF-8, whatever the user's locale: the bus knows no other. Before it, everything but
/// ASCII is escaped. False when the machine cannot. Call it before other threads start.
bool useUtf8();

/// The text with everything that could steer a terminal or break a line made visible: \n, \t, \r, and \xNN for each
/// byte of other control characters, of marks that turn the reading direction, and of what is not UTF-8. A backslash is
/// doubled, so that the text can be told from one that was changed.
std::string harmless(std::string_view text);

/// How many columns of a terminal a harmless text takes.
size_t columns(std::string_view text);

/// An age in seconds in its two greatest units, without blanks: "59s", "5min3s", "2h5min", "3d4h".
std::string ageText(uint32_t seconds);

} // namespace Vardctl
