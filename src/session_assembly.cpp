// One new session: the steps from the account to the running program.
#include "session_assembly.h"

#include "logger.h"
#include "look_as_user.h"
#include "parsec.h"
#include "secret.h"
#include "session_command.h"
#include "session_desktop.h"
#include "text.h"
#include "user_database.h"
#include "user_runtime_directory.h"

#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace Vard {

using namespace std::chrono_literals;

namespace {

constexpr const char* func = "startSession";
constexpr auto homeLimit = 2s;

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
    session->runtimedir =
        Utils::stringReplace(settings.setting(Settings::runtimeXdg), "%{uid}", std::to_string(user.uid));
    return session;
}

void tellMissingProfile(const Session& session) {
    if (!session.profile) {
        Syslog::warning("%s: no profile mounted, user: %s, in force: the home as it is, `%s'", func,
                        session.username.c_str(), session.home.c_str());
    }
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

} // namespace

std::shared_ptr<Session> SessionAssembly::build(DisplayRight right, LoginAudit& audit) {
    auto session = makeRecord(request_.user, std::move(right), settings_, services_.display);
    UserRuntimeDirectory runtimeDirectory(session->runtimedir, session->username);
    if (!runtimeDirectory.valid() || !checkAccount(*session, audit) || !programExists(request_.program) ||
        !checkHome(*session)) {
        return nullptr;
    }
    if (settings_.setting(Settings::profileEnabled)) {
        sessionMountProfile(session.get(), services_.profiles, settings_);
        tellMissingProfile(*session);
    }
    if (!startDisplay(*session)) {
        return nullptr;
    }
    prepareDesktop(*session, request_.format.width, request_.format.height, settings_);
    if (!startProgram(*session)) {
        return nullptr;
    }
    runtimeDirectory.keep();
    return session;
}

bool SessionAssembly::checkAccount(Session& session, LoginAudit& audit) {
    auto pam =
        std::make_unique<PamService>(settings_.setting(Settings::pamService), session.username, request_.password);
    audit.begin(session.display, session.username);
    if (!pam->validateAccount()) {
        return false;
    }
    session.pam = std::move(pam);
    return true;
}

// A home that is missing is no reason to refuse the session, but one that does not answer would hold everything
// that is started in it.
bool SessionAssembly::checkHome(Session& session) {
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
bool SessionAssembly::startDisplay(Session& session) {
    auto& users = services_.display.users;
    if (users.grant(users.starts, session.uid, func).count() == 0) {
        return false;
    }
    auto [authority, cookie] = createXauthFile(services_.directory, session.display, session.username, settings_);
    const Utils::WipeGuard guard(cookie);
    session.xauthfile = std::move(authority);
    Display display(session.displayRight, session.username, session.uid, settings_, services_.display);
    if (!bringUp(display, session) || !(session.xcb = display.connect(cookie))) {
        display.restIfDisturbed();
        return false;
    }
    return true;
}

bool SessionAssembly::bringUp(Display& display, Session& session) {
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
bool SessionAssembly::startProgram(Session& session) {
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

void sessionMountProfile(Session* session, ProfileVolumes& profiles, const JsonConfig& settings) {
    if (session == nullptr || session->profile) {
        return;
    }
    session->profile =
        profiles.mount(session->tasks(), session->username, session->home.string(),
                       settings.setting(Settings::profileType), settings.setting(Settings::profileOption));
}

} // namespace Vard
