// Enlarging a session's top-level windows to the screen.
#pragma once

#include "xcb_connector.h"

#include <string>

namespace Vard {

/// What decides whether a window is enlarged, as read from its properties.
struct WindowTraits {
    bool hasState = false; ///< has _NET_WM_STATE
    bool hasClass = false; ///< has WM_CLASS
    bool hasRole = false; ///< has WM_WINDOW_ROLE
    bool ownLeader = false; ///< WM_CLIENT_LEADER is the window itself
    bool hasIcon = false; ///< has _NET_WM_ICON
    std::string instance; ///< first string of WM_CLASS
};

/// True when a window with these traits is to fill the screen. Pure.
bool fillsScreen(const WindowTraits& traits);

/// One pass over the top-level windows: each that is to fill the screen and does not yet is moved to 0,0 and resized to
/// the root window's size. False when there are none. Logs under "sessionCorrectMainWindowSize".
bool fitWindows(Xcb::Connector& xcb);

/// Logs every top-level window with its size, at debug level.
void logWindows(Xcb::Connector& xcb);

} // namespace Vard
