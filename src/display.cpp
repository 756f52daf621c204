// One X display of a session: its authority, its server, its socket, our connection to it.
#include "display.h"

#include "exceptions.h"
#include "local_socket.h"
#include "logger.h"
#include "process.h"
#include "random_bytes.h"
#include "secret.h"
#include "server_arguments.h"
#include "stop_request.h"
#include "text.h"
#include "user_database.h"
#include "x_server.h"

#include <algorithm>
#include <thread>

namespace fs = std::filesystem;

namespace Vard {

namespace {

constexpr unsigned socketWait = 5; // seconds
constexpr std::chrono::milliseconds listenPause{5}; // from a socket's making to its listening
constexpr std::chrono::milliseconds connectPause{200};
constexpr std::chrono::milliseconds muteTime{1000}; // a server that refuses does so at once
constexpr size_t cookieSize = 32;
constexpr const char* func = "startSession";

} // namespace

fs::path displaySocket(const JsonConfig& settings, uint32_t display) {
    return Utils::stringReplace(settings.setting(Settings::serverSocket), "%{display}", std::to_string(display));
}

std::pair<XAuthorityFile, std::vector<uint8_t>> createXauthFile(const fs::path& directory, unsigned display,
                                                                const std::string& user, const JsonConfig& settings) {
    Syslog::info("%s: display: %u, user: %s", "createXauthFile", display, user.c_str());
    auto cookie = Utils::randomBytes(cookieSize);
    auto record = xauthorityRecord(Utils::getHostname(), display, cookie);
    const Utils::WipeGuard guard(record);
    return {XAuthorityFile(directory / ("xauth_" + std::to_string(display)), record, user,
                           settings.setting(Settings::xauthGroup)),
            std::move(cookie)};
}

pid_t runXvfbDisplay(unsigned display, const DisplayFormat& format, const std::string& user, const fs::path& authfile,
                     const JsonConfig& settings, bool isolated, const SocketNest* nest) {
    Syslog::info("%s: display: %u, depth: %u, width: %u, height: %u, xauthfile: %s", "runXvfbDisplay", display,
                 format.depth, format.width, format.height, authfile.c_str());
    const auto args = serverArguments(settings.setting(Settings::serverArgs), display, validDepth(format.depth),
                                      format.width, format.height, authfile);
    ChildOptions options;
    options.ownNetwork = isolated;
    if (nest != nullptr && nest->valid()) {
        options.seenDirectory = nest->directory();
        options.usualDirectory = nest->usual();
    }
    return Utils::runChildProcess(settings.setting(Settings::serverPath), args, user, {}, options);
}

Display::Display(DisplayRight right, std::string user, uid_t uid, const JsonConfig& settings, DisplayServices services)
    : right_(std::move(right)),
      user_(std::move(user)),
      uid_(uid),
      settings_(settings),
      services_(services),
      usual_(displaySocket(settings, right_.display())),
      socket_(usual_) {}

bool Display::start(const DisplayFormat& format, const fs::path& authfile) {
    const bool isolated = services_.pool.isolated();
    try {
        if (isolated) {
            nest_ = std::make_shared<SocketNest>(usual_);
            socket_ = nest_->valid() ? nest_->socket() : usual_;
        }
        const pid_t pid = runXvfbDisplay(right_.display(), format, user_, authfile, settings_, isolated, nest_.get());
        // A killed server leaves its socket and its lock. The display is not handed out again before they are gone.
        const auto clear = [right = right_, usual = usual_, nest = nest_, uid = uid_] {
            clearDisplay(right.display(), usual, uid);
        };
        server_ = services_.children.watch(services_.tasks, pid, clear);
        return true;
    } catch (const vard_error&) {
        return false; // the runner has said why
    }
}

bool Display::disturbed() const { return isDisturbed(right_.display(), socket_, uid_); }

bool Display::worthWaiting(const Deadline& end) const {
    return server_.exists() && !server_.stopped() && !stopRequested && !end.passed();
}

// A user who stops his own server has the others wait no longer than one who lets his tools hang. Who disturbs
// another's start only has it go on elsewhere sooner.
bool Display::wait() {
    auto& patience = services_.users.starts;
    const auto begin = Clock::now();
    const Deadline end = begin + patience.left(uid_);
    const bool ready = Utils::waitSocketSec(socket_, socketWait, [&] { return worthWaiting(end) && !disturbed(); });
    if (ready || (server_.exists() && !disturbed())) {
        patience.took(uid_, "awaitSocket", Clock::now() - begin, !ready);
    }
    if (ready) {
        std::this_thread::sleep_for(listenPause);
    } else {
        giveUpSocket();
    }
    return ready;
}

void Display::giveUpSocket() {
    Syslog::error("%s: xvfb not started, pid: %d, socket: %s", func, server_.pid(), usual_.c_str());
    services_.pool.late(right_.display(), server_); // it may still come up, and is then in the way of others
    if (server_.stopped() || disturbed()) {
        server_.terminate(); // it will not come up
    }
}

// Whose socket it is decides whether the display is the session's at all.
bool Display::open() {
    return Utils::restrictSocket(socket_, uid_, transportGroup()) && (socket_ == usual_ || publish());
}

// What a user has put into the usual place since the start began goes, and is named. A directory or a mount that comes
// in between is in the way once more: then another display is tried.
bool Display::publish() {
    for (int attempt = 0; attempt < 2; ++attempt) {
        removeForeign(right_.display(), usual_, uid_);
        if (nest_->publish()) {
            return true;
        }
    }
    std::error_code ignored;
    if (fs::exists(fs::symlink_status(usual_, ignored))) {
        services_.pool.rest(right_.display());
    }
    return false;
}

// The transports, which may read the cookie, reach a server in a network namespace of its own by its path only.
std::optional<gid_t> Display::transportGroup() const {
    const std::string group = settings_.setting(Settings::xauthGroup);
    const gid_t gid = services_.pool.isolated() && !group.empty() ? Utils::getGroupGid(group) : unknownGid;
    return gid == unknownGid ? std::nullopt : std::optional(gid);
}

// A server that its user has stopped, or that never answers, would have every attempt wait.
std::shared_ptr<Xcb::Connector> Display::connect(const std::vector<uint8_t>& cookie) {
    const auto begin = Clock::now();
    const auto limit = services_.users.starts.left(uid_);
    std::shared_ptr<Xcb::Connector> connection;
    bool mute = false;
    const int attempts = settings_.setting(Settings::connectAttempts);
    if (attempts <= 0) {
        Syslog::error("%s: no attempt to connect, xcon:attempts:count: %d, display: %u", func, attempts,
                      right_.display());
    }
    for (int left = attempts; left > 0 && !connection; --left) {
        if (!worthWaiting(begin + limit)) {
            Syslog::error("%s: X server has ended, is stopped or does not answer, display: %u", func, right_.display());
            break;
        }
        const auto attempt = Clock::now();
        try {
            connection = connectOnce(cookie, std::min<std::chrono::milliseconds>(limit, Xcb::Connector::answerLimit));
        } catch (const std::exception& err) {
            Syslog::error("%s: exception: %s, attempts left: %u", func, err.what(), static_cast<unsigned>(left));
            mute = mute || Clock::now() - attempt > std::min(muteTime, limit / 2);
            std::this_thread::sleep_for(connectPause);
        }
    }
    services_.users.starts.took(uid_, func, Clock::now() - begin, mute && !connection);
    return connection;
}

std::shared_ptr<Xcb::Connector> Display::connectOnce(const std::vector<uint8_t>& cookie,
                                                     std::chrono::milliseconds limit) {
    FileDescriptor connection = Socket::connectOwned(usual_, uid_);
    if (!connection) {
        const std::string address = ":" + std::to_string(right_.display());
        Syslog::error("%s: %s failed, addr: %s", "Connector", "xcb_connect", address.c_str());
        throw xcb_error("Connector");
    }
    return std::make_shared<Xcb::Connector>(right_.display(), &cookie, std::move(connection), limit);
}

void Display::restIfDisturbed() {
    if (wasDisturbed(right_.display(), usual_, uid_)) {
        services_.pool.rest(right_.display());
    }
}

} // namespace Vard
