// Enlarging a session's top-level windows to the screen.
#include "window_fitting.h"

#include "logger.h"

namespace Vard {

namespace {

constexpr const char* func = "sessionCorrectMainWindowSize";

WindowTraits readTraits(Xcb::Connector& xcb, xcb_window_t win) {
    const auto has = [&](const char* name) {
        const auto atom = xcb.getAtom(name, true);
        return atom != XCB_ATOM_NONE && xcb.getPropertyType(win, atom) != XCB_ATOM_NONE;
    };
    const auto leader = xcb.getAtom("WM_CLIENT_LEADER", true);
    const auto classes = xcb.getPropertyStringList(win, XCB_ATOM_WM_CLASS);
    WindowTraits traits;
    traits.hasState = has("_NET_WM_STATE");
    traits.hasClass = has("WM_CLASS");
    traits.hasRole = has("WM_WINDOW_ROLE");
    traits.ownLeader = leader != XCB_ATOM_NONE && xcb.getPropertyWindow(win, leader) == win;
    traits.hasIcon = has("_NET_WM_ICON");
    traits.instance = classes.empty() ? "" : classes.front();
    return traits;
}

} // namespace

// A window with a state, with a role, or that leads itself is an application's own; what another window leads is a
// dialog or a menu, but for one suite that draws its main window so.
bool fillsScreen(const WindowTraits& traits) {
    if (traits.hasState || (traits.hasClass && traits.hasRole) || traits.ownLeader) {
        return traits.instance != "fly-notifications";
    }
    return traits.hasIcon && traits.instance == "libreoffice";
}

bool fitWindows(Xcb::Connector& xcb) {
    const auto windows = xcb.getWindows();
    if (windows.empty()) {
        Syslog::warning("%s: windows not found", func);
        return false;
    }
    const auto root = xcb.getWindowGeometry(xcb.windowRoot());
    if (root.width == 0) {
        return true; // the server does not answer
    }
    for (const auto win : windows) {
        const auto size = xcb.getWindowGeometry(win);
        if ((size.width == root.width && size.height == root.height) || !fillsScreen(readTraits(xcb, win))) {
            continue;
        }
        xcb.setWindowGeometry(win, 0, 0, root.width, root.height);
        Syslog::debug("%s: window id: 0x%08x resized", func, win);
    }
    return true;
}

void logWindows(Xcb::Connector& xcb) {
    if (!Syslog::isDebugLevel(DebugLevel::Debug)) {
        return;
    }
    for (const auto win : xcb.getWindows()) {
        const auto size = xcb.getWindowGeometry(win);
        Syslog::debug("%s: win id: 0x%08x, current size: %ux%u", func, win, size.width, size.height);
    }
}

} // namespace Vard
