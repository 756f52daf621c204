// Enlarging a session's top-level windows to the screen.
#pragma once

#include "xcb_connector.h"

#include <chrono>
#include <functional>
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

/// Tells that the session has ended, so that nothing more is asked of its server.
using Ended = std::function<bool()>;
/// How long one pass goes on before it asks nothing more; what is asked by then is still waited for.
constexpr std::chrono::seconds fittingLimit{3};

/// One pass over the top-level windows: each that is to fill the screen and does not yet is moved to 0,0 and resized to
/// the root window's size, until `ended` or the limit stops it. False when there are none. Logs under
/// "sessionCorrectMainWindowSize".
bool fitWindows(Xcb::Connector& xcb, const Ended& ended = {});

/// Logs every top-level window with its size, at debug level, within the same limits.
void logWindows(Xcb::Connector& xcb, const Ended& ended);

} // namespace Vard
