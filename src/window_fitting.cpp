// Enlarging a session's top-level windows to the screen.
#include "window_fitting.h"

#include "deadline.h"
#include "logger.h"

#include <optional>
#include <vector>

namespace Vard {

namespace {

constexpr const char* func = "sessionCorrectMainWindowSize";

/// One pass over the windows, whose number and slowness are up to the user's server.
class Pass {
public:
    explicit Pass(const Ended& ended) : ended_(ended) {}

    [[nodiscard]] bool over() const { return end_.passed() || (ended_ && ended_()); }

private:
    const Ended& ended_;
    Deadline end_ = Deadline::in(fittingLimit);
};

/// Empty when the pass was over before all was read.
std::optional<WindowTraits> readTraits(Xcb::Connector& xcb, xcb_window_t win, const Pass& pass) {
    const auto atomOf = [&](const char* name) {
        return pass.over() ? xcb_atom_t{XCB_ATOM_NONE} : xcb.getAtom(name, true);
    };
    const auto has = [&](const char* name) {
        const auto atom = atomOf(name);
        return atom != XCB_ATOM_NONE && xcb.getPropertyType(win, atom) != XCB_ATOM_NONE;
    };
    const auto leader = atomOf("WM_CLIENT_LEADER");
    WindowTraits traits;
    traits.hasState = has("_NET_WM_STATE");
    traits.hasClass = has("WM_CLASS");
    traits.hasRole = has("WM_WINDOW_ROLE");
    traits.hasIcon = has("_NET_WM_ICON");
    traits.ownLeader = leader != XCB_ATOM_NONE && xcb.getPropertyWindow(win, leader) == win;
    const auto classes = pass.over() ? std::vector<std::string>{} : xcb.getPropertyStringList(win, XCB_ATOM_WM_CLASS);
    traits.instance = classes.empty() ? "" : classes.front();
    return pass.over() ? std::nullopt : std::optional(traits);
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

bool fitWindows(Xcb::Connector& xcb, const Ended& ended) {
    const Pass pass(ended);
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
        if (pass.over()) {
            break;
        }
        const auto size = xcb.getWindowGeometry(win);
        if (size.width == root.width && size.height == root.height) {
            continue;
        }
        const auto traits = readTraits(xcb, win, pass);
        if (!traits || !fillsScreen(*traits)) {
            continue;
        }
        xcb.setWindowGeometry(win, 0, 0, root.width, root.height);
        Syslog::debug("%s: window id: 0x%08x resized", func, win);
    }
    return true;
}

void logWindows(Xcb::Connector& xcb, const Ended& ended) {
    if (!Syslog::isDebugLevel(DebugLevel::Debug)) {
        return;
    }
    const Pass pass(ended);
    for (const auto win : xcb.getWindows()) {
        if (pass.over()) {
            return;
        }
        const auto size = xcb.getWindowGeometry(win);
        Syslog::debug("%s: win id: 0x%08x, current size: %ux%u", func, win, size.width, size.height);
    }
}

} // namespace Vard
