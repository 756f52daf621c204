// The X server of a session: its authority file, its process, its socket, our connection to it.
#include "dbus_service.h"

#include "exceptions.h"
#include "process.h"
#include "sockets.h"
#include "user_database.h"
#include "utils.h"
#include "x_server.h"
#include "xauthority.h"

#include <sys/types.h>

#include <thread>

namespace fs = std::filesystem;

namespace Vard {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned socketWait = 5; // seconds
constexpr std::chrono::milliseconds connectPause{200};
constexpr std::chrono::milliseconds muteTime{1000}; // a server that refuses does so at once
constexpr size_t cookieSize = 32;
constexpr std::chrono::milliseconds closeLook{100};
constexpr std::chrono::milliseconds closeStep{5};

// The wait proper looks ten times a second; most servers are there much sooner.
void lookClosely(const fs::path& socket, const std::function<bool()>& goOn) {
    const auto end = Clock::now() + closeLook;
    std::error_code ignored;
    while (fs::symlink_status(socket, ignored).type() != fs::file_type::socket && Clock::now() < end && goOn()) {
        std::this_thread::sleep_for(closeStep);
    }
    std::this_thread::sleep_for(closeStep); // from its making to its listening
}

} // namespace

std::pair<XAuthorityFile, std::vector<uint8_t>> DBusService::createXauthFile(unsigned display,
                                                                             const std::string& user) {
    info("%s: display: %u, user: %s", "createXauthFile", display, user.c_str());
    const fs::path path = runtimeDir_ / ("xauth_" + std::to_string(display));
    auto cookie = Utils::randomBytes(cookieSize);
    auto record = xauthorityRecord(Utils::getHostname(), display, cookie);
    XAuthorityFile file(path, record, user, config()->settingString("xauth:group", "vard-xauth"));
    Utils::wipe(record);
    return {std::move(file), std::move(cookie)};
}

pid_t DBusService::runXvfbDisplay(unsigned display, unsigned char depth, unsigned short width, unsigned short height,
                                  const std::string& user, const fs::path& authfile, const SocketNest* nest) {
    info("%s: display: %u, depth: %u, width: %u, height: %u, xauthfile: %s", "runXvfbDisplay", display, depth, width,
         height, authfile.c_str());
    const auto settings = config();
    const auto args =
        serverArguments(settings->settingStringList("xvfb:args"), display, validDepth(depth), width, height, authfile);
    ChildOptions options;
    options.ownNetwork = displays_.isolated();
    if (nest != nullptr && nest->valid()) {
        options.seenDirectory = nest->directory();
        options.usualDirectory = nest->usual();
    }
    return Utils::runChildProcess(settings->settingString("xvfb:path", "/usr/bin/Xorg"), args, user, {}, options);
}

fs::path DBusService::displaySocket(unsigned display) const {
    return Utils::stringReplace(config()->settingString("xvfb:sock", "/tmp/.X11-unix/X%{display}"), "%{display}",
                                std::to_string(display));
}

// The authority file becomes the record's as soon as it is written, so that every failure takes it away again.
bool DBusService::startDisplay(Session& session, const StartRequest& request, std::vector<uint8_t>& cookie) {
    if (userChildren_.grant(userChildren_.starts, session.uid, "startSession").count() == 0) {
        return false;
    }
    std::tie(session.xauthfile, cookie) = createXauthFile(session.display, session.username);
    try {
        const auto nest = displays_.isolated() ? std::make_shared<SocketNest>(displaySocket(session.display)) : nullptr;
        const pid_t pid = runXvfbDisplay(session.display, request.depth, request.width, request.height,
                                         session.username, session.xauthfile.path(), nest.get());
        return waitDisplay(session, pid, nest);
    } catch (const vard_error&) {
        return false; // the runner has said why
    }
}

bool DBusService::waitDisplay(Session& session, pid_t pid, const std::shared_ptr<SocketNest>& nest) {
    const fs::path usual = displaySocket(session.display);
    const fs::path socket = nest && nest->valid() ? nest->socket() : usual;
    // A killed server leaves its socket and its lock. The display is not handed out again before they are gone.
    const ProcessHandle server = saveWaitPidBackground(
        pid, [lease = session.displayLease, usual, nest, uid = session.uid] { clearDisplay(*lease, usual, uid); });
    if (!awaitSocket(session, server, socket)) {
        error("%s: xvfb not started, pid: %d, socket: %s", "startSession", pid, usual.c_str());
        displays_.late(session.display, server); // it may still come up, and is then in the way of others
        if (server.stopped() || isDisturbed(session.display, socket, session.uid)) {
            server.terminate(); // it will not come up
        }
        return false;
    }
    session.pid1 = server;
    // Whose socket it is decides whether the display is the session's at all.
    if (!Utils::restrictSocket(socket, session.uid, transportGroup()) ||
        (socket != usual && !publish(session, *nest, usual))) {
        return false;
    }
    session.start = std::chrono::system_clock::now();
    logIdentity(session);
    return true;
}

// What a user has put into the usual place since the start began goes, and is named. A directory or a mount that comes
// in between is in the way once more: then another display is tried.
bool DBusService::publish(const Session& session, const SocketNest& nest, const fs::path& usual) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        removeForeign(session.display, usual, session.uid);
        if (nest.publish()) {
            return true;
        }
    }
    std::error_code ignored;
    if (fs::exists(fs::symlink_status(usual, ignored))) {
        displays_.rest(session.display);
    }
    return false;
}

// The transports, which may read the cookie, reach a server in a network namespace of its own by its path only.
std::optional<gid_t> DBusService::transportGroup() const {
    const std::string group = config()->settingString("xauth:group", "vard-xauth");
    const gid_t gid = displays_.isolated() && !group.empty() ? Utils::getGroupGid(group) : unknownGid;
    return gid == unknownGid ? std::nullopt : std::optional(gid);
}

// A user who stops his own server has the others wait no longer than one who lets his tools hang. Who disturbs
// another's start only has it go on elsewhere sooner.
bool DBusService::awaitSocket(const Session& session, const ProcessHandle& server, const fs::path& socket) {
    auto& patience = userChildren_.starts;
    const auto begin = Clock::now();
    const auto limit = patience.left(session.uid);
    const auto goOn = [&] {
        return server.exists() && !server.stopped() && !stopRequested && Clock::now() - begin < limit &&
               !isDisturbed(session.display, socket, session.uid);
    };
    lookClosely(socket, goOn);
    const bool ready = Utils::waitSocketSec(socket, socketWait, goOn);
    if (ready || (server.exists() && !isDisturbed(session.display, socket, session.uid))) {
        patience.took(session.uid, "awaitSocket", Clock::now() - begin, !ready);
    }
    return ready;
}

// A server that its user has stopped, or that never answers, would have every attempt wait.
bool DBusService::connectDisplay(Session& session, const std::vector<uint8_t>& cookie) {
    const auto begin = Clock::now();
    const auto limit = userChildren_.starts.left(session.uid);
    const auto worthwhile = [&] {
        return session.pid1.exists() && !session.pid1.stopped() && !stopRequested && Clock::now() - begin < limit;
    };
    bool mute = false;
    for (int left = config()->settingInteger("xcon:attempts:count", 5); left > 0 && !session.xcb; --left) {
        if (!worthwhile()) {
            error("%s: X server has ended, is stopped or does not answer, display: %u", "startSession",
                  session.display);
            break;
        }
        const auto attempt = Clock::now();
        try {
            connectOnce(session, cookie, std::min<std::chrono::milliseconds>(limit, Xcb::Connector::answerLimit));
        } catch (const std::exception& err) {
            error("%s: exception: %s, attempts left: %u", "startSession", err.what(), static_cast<unsigned>(left));
            mute = mute || Clock::now() - attempt > std::min(muteTime, limit / 2);
            std::this_thread::sleep_for(connectPause);
        }
    }
    userChildren_.starts.took(session.uid, "startSession", Clock::now() - begin, mute && !session.xcb);
    return session.xcb != nullptr;
}

void DBusService::connectOnce(Session& session, const std::vector<uint8_t>& cookie, std::chrono::milliseconds limit) {
    FileDescriptor connection = Socket::connectOwned(displaySocket(session.display), session.uid);
    if (!connection) {
        const std::string address = ":" + std::to_string(session.display);
        error("%s: %s failed, addr: %s", "Connector", "xcb_connect", address.c_str());
        throw xcb_error("Connector");
    }
    session.xcb = std::make_shared<Xcb::Connector>(session.display, &cookie, std::move(connection), limit);
}

} // namespace Vard
