// A notice in a plain window.
#pragma once

#include "arguments.h"

namespace Vard {

/// Shows the notice at the top right of the display that $DISPLAY names, below earlier ones, until a click, a key or
/// its time is up: 10 seconds, 30 for a critical one. Throws std::runtime_error when the display cannot be used.
void showWindow(const Notice& notice);

} // namespace Vard
