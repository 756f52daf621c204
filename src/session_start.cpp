// The start of a session, from the request to the running program: one lock from top to bottom, each step a named
// function, and every failure undone by the objects that the steps left behind.
#include "session_start.h"

#include "logger.h"
#include "parsec.h"
#include "runtime_directory.h"
#include "secret.h"
#include "session_command.h"
#include "session_desktop.h"
#include "text.h"
#include "user_database.h"
#include "user_scope.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace Vard {

using namespace std::chrono_literals;

namespace {

constexpr const char* func = "startSession";
constexpr auto homeLimit = 2s;
constexpr int mostDisplays = 3; // tried by one start

bool isEnding(const SessionState& state) {
    return state.pid1.endedBy({}) || state.pid2.endedBy({}) || state.pid1.toldToEndFor();
}

// Found out before the X server is started; the program's own start would find out too.
bool programExists(const fs::path& program) {
    std::error_code failed;
    const bool exists = fs::exists(program, failed);
    if (!exists) {
        Syslog::error("%s: program not found: %s", "runChildProcess", program.c_str());
    }
    return exists;
}

std::shared_ptr<Session> makeRecord(const std::string& username, DisplayRight right, const JsonConfig& settings,
                                    const DisplayServices& services) {
    const UserInfo user = Utils::getUserInfo(username);
    auto session = std::make_shared<Session>(services.tasks, services.users);
    session->display = right.display();
    session->sid = right.display();
    session->displayRight = std::move(right);
    session->uid = user.uid;
    session->gid = user.gid;
    session->home = user.home;
    session->gecos = user.gecos;
    session->shell = user.shell;
    session->username = username;
    session->runtimedir = Utils::stringReplace(settings.settingString("runtime:xdg", "/run/user/%{uid}"), "%{uid}",
                                               std::to_string(user.uid));
    return session;
}

// The labels are read only where they are shown.
void logIdentity(const Session& session) {
    if (!Syslog::isDebugLevel(DebugLevel::Debug)) {
        return;
    }
    Syslog::debug("%s: user: %s, uid: %d, gid: %d, home: `%s', shell: `%s'", func, session.username.c_str(),
                  static_cast<int>(session.uid), static_cast<int>(session.gid), session.home.c_str(),
                  session.shell.c_str());
    if (const auto labels = Parsec::userLabels(session.uid)) {
        Syslog::debug(
            "%s: PARSEC MAC for user: %s, min label (lev: %u, cat:0x%016lx), max label (lev: %u, cat:0x%016lx)", func,
            session.username.c_str(), labels->min.level, labels->min.categories, labels->max.level,
            labels->max.categories);
    }
    if (const auto integrity = Parsec::userIntegrity(session.uid)) {
        Syslog::debug("%s: PARSEC MIC for user: %s, ilev: %u", func, session.username.c_str(), *integrity);
    }
}

/// A new session on one display. What a failure leaves behind goes with the objects.
class NewSession {
public:
    NewSession(const StartRequest& request, SessionStart::Services& services, TableView& sessions)
        : request_(request), services_(services), sessions_(sessions), settings_(services.config.settings()) {}

    /// The session, not in the table yet; empty after logging the reason.
    std::shared_ptr<Session> build(DisplayRight right, LoginAudit& audit) {
        auto session = makeRecord(request_.user, std::move(right), *settings_, services_.display);
        RuntimeDirectory runtimeDirectory(session->runtimedir, session->username);
        if (!runtimeDirectory.valid() || !checkAccount(*session, audit) || !programExists(request_.program) ||
            !checkHome(*session)) {
            return nullptr;
        }
        if (settings_->settingBoolean("pvol:enable", false)) {
            sessionMountProfile(session.get(), services_.profiles, *settings_);
        }
        if (!startDisplay(*session)) {
            return nullptr;
        }
        prepareDesktop(*session, request_.format.width, request_.format.height, *settings_);
        if (!startProgram(*session)) {
            return nullptr;
        }
        runtimeDirectory.keep();
        return session;
    }

private:
    bool checkAccount(Session& session, LoginAudit& audit) {
        auto pam = std::make_unique<PamService>(settings_->settingString("pam:service", "vard"), session.username,
                                                request_.password);
        audit.begin(session.display, session.username);
        if (!pam->validateAccount()) {
            return false;
        }
        session.pam = std::move(pam);
        return true;
    }

    // A home that is missing is no reason to refuse the session, but one that does not answer would hold everything
    // that is started in it.
    bool checkHome(Session& session) {
        const auto look = [home = session.home] {
            std::error_code failed;
            return std::string(fs::is_directory(home, failed) ? "there" : "missing");
        };
        const auto found = callUserScope(session, look, services_.display.users.starts, homeLimit);
        if (!found) {
            Syslog::error("%s: user home does not answer: `%s'", func, session.home.c_str());
            return false;
        }
        session.homeMissing = *found != "there";
        if (session.homeMissing) {
            Syslog::warning("%s: user home not found: `%s'", func, session.home.c_str());
        }
        return true;
    }

    // The authority file and the server become the record's as soon as they are there, so that every failure takes them
    // away again; a server whose socket never appears is nobody's, and the display's in its stead.
    bool startDisplay(Session& session) {
        auto& users = services_.display.users;
        if (users.grant(users.starts, session.uid, func).count() == 0) {
            return false;
        }
        auto [authority, cookie] = createXauthFile(services_.directory, session.display, session.username, *settings_);
        const Utils::WipeGuard guard(cookie);
        session.xauthfile = std::move(authority);
        Display display(session.displayRight, session.username, session.uid, *settings_, services_.display);
        if (!bringUp(display, session) || !(session.xcb = display.connect(cookie))) {
            display.restIfDisturbed();
            return false;
        }
        return true;
    }

    bool bringUp(Display& display, Session& session) {
        if (!display.start(request_.format, session.xauthfile.path()) || !display.wait()) {
            return false;
        }
        sessions_.state(session).pid1 = display.server();
        if (!display.open()) {
            return false;
        }
        session.start = std::chrono::system_clock::now();
        logIdentity(session);
        return true;
    }

    // The table's lock, which the watcher takes too, keeps it from collecting a program that ends at once before the
    // session is in its slot; the child list's must not be held over a fork, which may wait for look-ups.
    bool startProgram(Session& session) {
        auto child = runSessionOpen(&session, request_.program, request_.args);
        if (!child) {
            return false;
        }
        sessions_.state(session).pid2 = child->process();
        services_.display.children.add(std::move(*child));
        session.pam->setSessionOpened();
        session.xsession = request_.program;
        return true;
    }

    const StartRequest& request_;
    SessionStart::Services& services_;
    TableView& sessions_;
    std::shared_ptr<const JsonConfig> settings_;
};

// Not one that is ending: its caller would be told of a session that is gone a moment later.
RequestHold findReusable(const StartRequest& request, const TableView& sessions) {
    for (const auto& session : sessions.sessions()) {
        if (session->username == request.user && session->xsession.native() == request.program.native() &&
            !isEnding(sessions.state(*session))) {
            return RequestHold(session);
        }
    }
    return {};
}

} // namespace

RequestHold SessionStart::start(const StartRequest& request) {
    const auto& [depth, width, height] = request.format;
    Syslog::notice("%s: depth: %u, width: %u, height: %u, session: %s", func, depth, width, height,
                   request.program.c_str());
    LoginAudit audit(services_.audit); // reports when it goes, after the table is free again
    RequestHold held;
    {
        auto sessions = services_.table.lock();
        held = findReusable(request, sessions);
        if (held) {
            Syslog::info("%s: session found, session id: 0x%08x, display: %u", func, held->sid, held->display);
            waitSessionGeometryUpdate(held.session().get(), width, height, *services_.config.settings());
            return held;
        }
        held = startNew(request, sessions, audit);
        if (!held) {
            return held;
        }
    }
    if (held->homeMissing) {
        repeatGeometry(held.session(), request.format);
    }
    audit.success();
    return held;
}

// Users can put sockets and locks into a display's place faster than its server starts: the next display is tried, but
// nobody gets the service to try them all.
RequestHold SessionStart::startNew(const StartRequest& request, TableView& sessions, LoginAudit& audit) {
    NewSession made(request, services_, sessions);
    const auto settings = services_.config.settings();
    for (int attempt = 0; attempt < mostDisplays; ++attempt) {
        auto right = services_.display.pool.take(sessions.freeDisplays(),
                                                 [&](uint32_t display) { return displaySocket(*settings, display); });
        if (!right) {
            Syslog::warning("%s: full house", func);
            return {};
        }
        const uint32_t display = right.display();
        if (auto session = made.build(std::move(right), audit)) {
            RequestHold held(session);
            sessions.put(std::move(session));
            return held;
        }
        if (!services_.display.pool.rests(display)) {
            return {};
        }
    }
    return {};
}

// A desktop that starts without a home sets the screen size back, more than once.
void SessionStart::repeatGeometry(const std::shared_ptr<Session>& session, const DisplayFormat& format) {
    auto& tasks = services_.display.tasks;
    tasks.run("repeatGeometry", [&tasks, &config = services_.config, session, format] {
        for (const auto pause : {3000ms, 12000ms}) {
            const auto end = std::chrono::steady_clock::now() + pause;
            while (std::chrono::steady_clock::now() < end) {
                if (session->ended || !tasks.sleep(100ms)) {
                    return; // holding the record longer would keep its display from being used again
                }
            }
            waitSessionGeometryUpdate(session.get(), format.width, format.height, *config.settings());
        }
    });
}

void sessionMountProfile(Session* session, ProfileVolumes& profiles, const JsonConfig& settings) {
    if (session == nullptr || session->profile) {
        return;
    }
    session->profile =
        profiles.mount(session->tasks(), session->username, session->home.string(),
                       settings.settingString("pvol:fstype", "ext4"), settings.settingString("pvol:option"));
}

} // namespace Vard
