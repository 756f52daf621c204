// What an X server says of itself when a client connects.
#pragma once

#include <string_view>

namespace Vard::Xcb {

/// True when the server's setup `bytes`, from its status on, hold all that they announce as far as the end of the first
/// screen, and can be worked with: the X library walks them by their counts alone. Pure.
bool setupHolds(std::string_view bytes);

} // namespace Vard::Xcb
