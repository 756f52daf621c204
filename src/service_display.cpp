// The X server of a session: its authority file, its process, its socket, our connection to it.
#include "dbus_service.h"

#include "exceptions.h"
#include "process.h"
#include "sockets.h"
#include "utils.h"
#include "x_server.h"
#include "xauthority.h"

#include <sys/types.h>

#include <thread>

namespace fs = std::filesystem;

namespace Vard {

namespace {

constexpr unsigned socketWait = 5; // seconds
constexpr std::chrono::milliseconds connectPause{200};
constexpr size_t cookieSize = 32;
constexpr std::chrono::milliseconds closeLook{100};
constexpr std::chrono::milliseconds closeStep{5};

// The wait proper looks ten times a second; most servers are there much sooner.
void lookClosely(const fs::path& socket) {
    const auto end = std::chrono::steady_clock::now() + closeLook;
    std::error_code ignored;
    while (fs::symlink_status(socket, ignored).type() != fs::file_type::socket &&
           std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(closeStep);
    }
    std::this_thread::sleep_for(closeStep); // from its making to its listening
}

} // namespace

std::pair<fs::path, std::vector<uint8_t>> DBusService::createXauthFile(unsigned display, const std::string& user) {
    info("%s: display: %u, user: %s", "createXauthFile", display, user.c_str());
    const fs::path path = runtimeDir_ / ("xauth_" + std::to_string(display));
    auto cookie = Utils::randomBytes(cookieSize);
    auto record = xauthorityRecord(Utils::getHostname(), display, cookie);
    writeXauthority(path, record, user, config()->settingString("xauth:group", "vard-xauth"));
    Utils::wipe(record);
    return {path, std::move(cookie)};
}

pid_t DBusService::runXvfbDisplay(unsigned display, unsigned char depth, unsigned short width, unsigned short height,
                                  const std::string& user, const fs::path& authfile) {
    info("%s: display: %u, depth: %u, width: %u, height: %u, xauthfile: %s", "runXvfbDisplay", display, depth, width,
         height, authfile.c_str());
    const auto settings = config();
    const auto args =
        serverArguments(settings->settingStringList("xvfb:args"), display, validDepth(depth), width, height, authfile);
    return Utils::runChildProcess(settings->settingString("xvfb:path", "/usr/bin/Xorg"), args, user, {});
}

fs::path DBusService::displaySocket(unsigned display) const {
    return Utils::stringReplace(config()->settingString("xvfb:sock", "/tmp/.X11-unix/X%{display}"), "%{display}",
                                std::to_string(display));
}

// The authority file becomes the record's as soon as it is written, so that every failure takes it away again.
bool DBusService::startDisplay(Session& session, const StartRequest& request, std::vector<uint8_t>& cookie) {
    std::tie(session.xauthfile, cookie) = createXauthFile(session.display, session.username);
    try {
        const pid_t pid = runXvfbDisplay(session.display, request.depth, request.width, request.height,
                                         session.username, session.xauthfile);
        return waitDisplay(session, pid);
    } catch (const vard_error&) {
        return false; // the runner has said why
    }
}

bool DBusService::waitDisplay(Session& session, pid_t pid) {
    const fs::path socket = displaySocket(session.display);
    // A killed server leaves its socket and its lock. The display is not handed out again before they are gone.
    const ProcessHandle server =
        saveWaitPidBackground(pid, [lease = session.displayLease, socket] { clearDisplay(*lease, socket); });
    lookClosely(socket);
    if (!Utils::waitSocketSec(socket, socketWait, [&] { return server.exists(); })) {
        error("%s: xvfb not started, pid: %d, socket: %s", "startSession", pid, socket.c_str());
        lateServers_[session.display] = server; // it may still come up, and is then in the way of others
        return false;
    }
    session.pid1 = server;
    // Whose socket it is decides whether the display is the session's at all.
    if (!Utils::restrictSocket(socket, session.uid)) {
        return false;
    }
    session.start = std::chrono::system_clock::now();
    return true;
}

bool DBusService::connectDisplay(Session& session, const std::vector<uint8_t>& cookie) {
    const fs::path socket = displaySocket(session.display);
    for (int left = config()->settingInteger("xcon:attempts:count", 5); left > 0 && !session.xcb; --left) {
        try {
            FileDescriptor connection = Socket::connectOwned(socket, session.uid);
            if (!connection) {
                const std::string address = ":" + std::to_string(session.display);
                error("%s: %s failed, addr: %s", "Connector", "xcb_connect", address.c_str());
                throw xcb_error("Connector");
            }
            session.xcb = std::make_shared<Xcb::Connector>(session.display, &cookie, std::move(connection));
        } catch (const std::exception& err) {
            error("%s: exception: %s, attempts left: %u", "startSession", err.what(), static_cast<unsigned>(left));
            std::this_thread::sleep_for(connectPause);
        }
    }
    return session.xcb != nullptr;
}

} // namespace Vard
