// Preparing a session's desktop from outside: small tools run as the user, the screen's size, the windows' size.
#include "session_desktop.h"

#include "bus_address.h"
#include "logger.h"
#include "look_as_user.h"
#include "screen_mode.h"
#include "session_command.h"
#include "small_file.h"
#include "text.h"
#include "window_fitting.h"

#include <algorithm>
#include <list>
#include <optional>
#include <system_error>

namespace Vard {

using namespace std::chrono_literals;

namespace {

constexpr int fittingPasses = 10;
constexpr auto fittingPause = 550ms;
constexpr auto addressLimit = 2s; // a query is not held up by a home directory that does not answer

/// Runs a tool in the session and waits for its end; whatever happens is logged under `name`, and the caller goes on.
void waitTool(const Session* session, const char* name, const std::string& program,
              const std::list<std::string>& args) {
    if (session == nullptr) {
        return;
    }
    try {
        runSessionTool(*session, name, program, args);
    } catch (const std::system_error& err) {
        Syslog::error("%s: system error: %s", name, err.what());
    } catch (const std::exception& err) {
        Syslog::error("%s: exception: %s", name, err.what());
    }
}

/// True when the session's X server answers, and its user may be waited for at all.
bool asks(const Session& session, const char* name) {
    auto& children = session.users();
    const auto left = children.grant(children.tools, session.uid, name);
    if (left.count() == 0) {
        return false;
    }
    const UserChildren::Question question(children, session.uid);
    const bool answers = session.xcb->answers(std::min<std::chrono::milliseconds>(left, Xcb::Connector::answerLimit));
    if (!answers) {
        Syslog::warning("%s: X server does not answer, display: %u", name, session.display);
    }
    return answers;
}

/// The same for a tool that is a client of the session's X server. One that its user has stopped would hold the tool,
/// and with it the service, until the tool is killed.
void waitClient(const Session* session, const char* name, const std::string& program,
                const std::list<std::string>& args) {
    if (session != nullptr && session->xcb && !asks(*session, name)) {
        return;
    }
    waitTool(session, name, program, args);
}

/// The mode to set for a size; none when the screen has it already.
std::optional<ScreenMode> neededMode(const Session& session, unsigned short width, unsigned short height) {
    const UserChildren::Question question(session.users(), session.uid);
    const auto root = session.xcb->getWindowGeometry(session.xcb->windowRoot());
    if (root.width == width && root.height == height) {
        return std::nullopt;
    }
    return chooseScreenMode(session.xcb->getScreenSizes(), {width, height});
}

} // namespace

void waitSessionDBus(const Session* session) {
    waitTool(session, "waitSessionDBus", "/usr/bin/dbus-update-activation-environment", {"--systemd", "--all"});
}

void waitSessionFixSetxkbmapEvdev(const Session* session) {
    waitClient(session, "waitSessionFixSetxkbmapEvdev", "/usr/bin/setxkbmap", {"-keycodes", "evdev+aliases(qwerty)"});
}

void waitSessionLoadX11Resources(const Session* session) {
    waitClient(session, "waitSessionLoadX11Resources", "/usr/bin/xrdb",
               {"-quiet", "-load", "/etc/X11/Xresources/x11-vard"});
}

bool waitSessionGeometryUpdate(const Session* session, unsigned short width, unsigned short height,
                               const JsonConfig& settings) {
    if (session == nullptr || !session->xcb || !asks(*session, "waitSessionGeometryUpdate")) {
        return false;
    }
    const auto mode = neededMode(*session, width, height);
    if (!mode) {
        return true;
    }
    waitClient(session, "waitSessionGeometryUpdate", settings.setting(Settings::sizeTool),
               {"--size", std::to_string(mode->width) + "x" + std::to_string(mode->height), "--display",
                ":" + std::to_string(session->display), "--verbose"});
    return true;
}

void prepareDesktop(const Session& session, unsigned short width, unsigned short height, const JsonConfig& settings) {
    waitSessionDBus(&session);
    waitSessionGeometryUpdate(&session, width, height, settings);
    waitSessionFixSetxkbmapEvdev(&session);
    waitSessionLoadX11Resources(&session);
}

void sessionCorrectMainWindowSize(const std::shared_ptr<Session>& session) {
    session->tasks().run("sessionCorrectMainWindowSize", [session] {
        const auto xcb = session->xcb;
        if (!xcb) {
            Syslog::warning("%s: xcb session destroyed, session id: 0x%08x", "sessionCorrectMainWindowSize",
                            session->sid);
            return;
        }
        auto& tasks = session->tasks();
        const auto ended = [&] { return session->ended || tasks.stopping(); };
        for (int counter = fittingPasses - 1; counter >= 0; --counter) {
            // Holding the record of an ended session would keep its display from being used again.
            if (session->ended || !tasks.sleep(fittingPause)) {
                return;
            }
            if (fitWindows(*xcb, ended)) {
                Syslog::debug("%s: wait next iteration: %d", "sessionCorrectMainWindowSize", counter);
            }
        }
        logWindows(*xcb, ended);
    });
}

// Every file whose path holds the display's number counts, also that of a longer number.
std::string readSessionDBusAddress(const std::filesystem::path& directory, uint32_t display) {
    const std::string match = "-" + std::to_string(display);
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        std::error_code unreadable;
        if (!entry.is_regular_file(unreadable) || entry.path().native().find(match) == std::string::npos) {
            continue;
        }
        if (const auto address = busAddressIn(Utils::readSmallFile(entry.path(), true))) {
            return *address;
        }
    }
    return "";
}

std::string sessionBusAddress(const Session& session) {
    const auto search = [directory = session.home / ".dbus" / "session-bus", display = session.display] {
        try {
            return readSessionDBusAddress(directory, display);
        } catch (const std::exception& err) {
            Syslog::error("exception: %s", err.what());
            return std::string{};
        }
    };
    try {
        return Utils::toValidUtf8(callUserScope(session, search, session.users().tools, addressLimit).value_or(""));
    } catch (const std::exception& err) {
        Syslog::error("exception: %s", err.what());
        return "";
    }
}

} // namespace Vard
