// The start of a session: one lock from top to bottom, each step a named function, and every failure undone by the
// objects that the steps left behind.
#include "dbus_service.h"

#include "parsec.h"
#include "session_command.h"
#include "user_database.h"
#include "user_scope.h"
#include "utils.h"
#include "x_server.h"

#include <algorithm>
#include <set>
#include <thread>

namespace fs = std::filesystem;

namespace Vard {

using namespace std::chrono_literals;

namespace {

constexpr auto leaseWait = 1s; // in one start, for all displays together
constexpr auto homeLimit = 2s;
constexpr int mostDisplays = 3; // tried by one start

bool isEnding(const Session& session) {
    return session.pid1.endedBy({}) || session.pid2.endedBy({}) || session.pid1.toldToEndFor();
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

} // namespace

DBusService::SessionPtr DBusService::startSession(const std::string& user, const std::string& password,
                                                  const unsigned char& depth, const unsigned short& width,
                                                  const unsigned short& height, const std::string& sessionPath,
                                                  const std::list<std::string>& sessionArgs) {
    return startSession(StartRequest{user, password, depth, width, height, sessionPath, sessionArgs});
}

DBusService::SessionPtr DBusService::startSession(const StartRequest& request) {
    notice("%s: depth: %u, width: %u, height: %u, session: %s", "startSession", request.depth, request.width,
           request.height, request.program.c_str());
    LoginAudit audit(auditLog_); // reports when it goes, after the table is free again
    SessionPtr session;
    {
        const std::scoped_lock lock(table_.mutex());
        if (auto existing = findReusableLocked(request)) {
            return existing;
        }
        session = startNewLocked(request, audit);
        if (!session) {
            return nullptr;
        }
    }
    if (session->homeMissing) {
        repeatGeometry(session, request.width, request.height);
    }
    audit.success();
    return session;
}

DBusService::SessionPtr DBusService::findForRequest(uint32_t sid) {
    auto found = table_.findSession(sid);
    const std::scoped_lock lock(table_.mutex());
    if (!found || found->ended) {
        return nullptr;
    }
    request_ = RequestHold(found);
    return found;
}

// Not one that is ending: its caller would be told of a session that is gone a moment later.
DBusService::SessionPtr DBusService::findReusableLocked(const StartRequest& request) {
    for (const auto& session : table_.slotsLocked()) {
        if (session && session->username == request.user && session->xsession.native() == request.program.native() &&
            !isEnding(*session)) {
            info("%s: session found, session id: 0x%08x, display: %u", "startSession", session->sid, session->display);
            request_ = RequestHold(session);
            waitSessionGeometryUpdate(session.get(), request.width, request.height);
            return session;
        }
    }
    return nullptr;
}

// Users can put sockets and locks into a display's place faster than its server starts: the next display is tried, but
// nobody gets the service to try them all.
DBusService::SessionPtr DBusService::startNewLocked(const StartRequest& request, LoginAudit& audit) {
    for (int attempt = 0; attempt < mostDisplays; ++attempt) {
        const Place place = takePlaceLocked();
        if (!place.lease) {
            warning("%s: full house", "startSession");
            return nullptr;
        }
        if (auto session = buildSession(request, place.lease, audit)) {
            request_ = RequestHold(session);
            *place.slot = session;
            return session;
        }
        if (!displays_.rests(*place.lease)) {
            return nullptr;
        }
    }
    return nullptr;
}

// First a pass that waits for nothing; only when every display is taken, the wait for those whose sessions are ending.
DBusService::Place DBusService::takePlaceLocked() {
    std::vector<size_t> ending;
    for (const size_t index : emptySlotsLocked()) {
        auto place = tryPlaceLocked(index, false);
        if (place.slot != nullptr) {
            return place;
        }
        if (!place.lease) {
            info("%s: display passed over: %u, an earlier session is still ending", "startSession",
                 table_.displayLocked(index));
            ending.push_back(index);
        }
    }
    auto place = waitPlaceLocked(ending);
    return place.slot != nullptr ? place : restingPlaceLocked();
}

// A display where a start was disturbed is better than none: whoever disturbed it may be gone.
DBusService::Place DBusService::restingPlaceLocked() {
    for (const size_t index : emptySlotsLocked()) {
        const bool rests = displays_.rests(table_.displayLocked(index));
        if (auto place = rests ? tryPlaceLocked(index, true) : Place{}; place.slot != nullptr) {
            return place;
        }
    }
    return {};
}

// An old session may have a display in another slot, from before the range was moved; so may the table have more slots
// than the range.
std::vector<size_t> DBusService::emptySlotsLocked() {
    const auto& slots = table_.slotsLocked();
    std::set<uint32_t> taken;
    for (const auto& session : slots) {
        if (session) {
            taken.insert(session->sid);
        }
    }
    std::vector<size_t> empty;
    for (size_t index = 0; index < slots.size(); ++index) {
        const uint32_t display = table_.displayLocked(index);
        if (!slots[index] && display <= lastDisplay && !taken.contains(display)) {
            empty.push_back(index);
        }
    }
    return empty;
}

// Without a slot, when the display cannot be had; without a lease either, when an earlier session is still ending
// there.
DBusService::Place DBusService::tryPlaceLocked(size_t index, bool evenResting) {
    const uint32_t display = table_.displayLocked(index);
    Place place;
    const bool serverGone = displays_.serverGone(display);
    place.lease = table_.leaseLocked(display);
    if (serverGone && place.lease && displays_.claim(display, displaySocket(display), evenResting)) {
        place.slot = &table_.slotsLocked()[index];
    }
    return place;
}

// The record of a session that has just ended is gone in a moment, and so is its server. Those that stay must not hold
// the logins of others for longer.
DBusService::Place DBusService::waitPlaceLocked(std::vector<size_t>& ending) {
    const auto end = std::chrono::steady_clock::now() + leaseWait;
    while (!ending.empty() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(5ms);
        for (size_t i = 0; i < ending.size(); ++i) {
            auto place = tryPlaceLocked(ending[i], false);
            if (place.slot != nullptr) {
                return place;
            }
            if (place.lease) { // gone, but there is something else in the way
                ending.erase(ending.begin() + static_cast<std::ptrdiff_t>(i--));
            }
        }
    }
    return {};
}

DBusService::SessionPtr DBusService::newRecord(const StartRequest& request, std::shared_ptr<const uint32_t> lease) {
    const UserInfo user = Utils::getUserInfo(request.user);
    auto session = std::make_shared<Session>(tasks_, userChildren_);
    session->display = *lease;
    session->sid = *lease;
    session->displayLease = std::move(lease);
    session->uid = user.uid;
    session->gid = user.gid;
    session->home = user.home;
    session->gecos = user.gecos;
    session->shell = user.shell;
    session->username = request.user;
    session->runtimedir = Utils::stringReplace(config()->settingString("runtime:xdg", "/run/user/%{uid}"), "%{uid}",
                                               std::to_string(user.uid));
    return session;
}

DBusService::SessionPtr DBusService::buildSession(const StartRequest& request, std::shared_ptr<const uint32_t> lease,
                                                  LoginAudit& audit) {
    auto session = newRecord(request, std::move(lease));
    RuntimeDirectory runtimeDirectory(session->runtimedir, session->username);
    if (!runtimeDirectory.valid()) {
        return nullptr;
    }
    if (!checkAccount(*session, request.password, audit) || !programExists(request.program)) {
        return nullptr;
    }
    if (!checkHome(*session)) {
        return nullptr;
    }
    if (config()->settingBoolean("pvol:enable", false)) {
        sessionMountProfile(session.get());
    }
    std::vector<uint8_t> cookie;
    const Utils::WipeGuard cookieGuard(cookie);
    if (!startDisplay(*session, request, cookie) || !connectDisplay(*session, cookie)) {
        if (wasDisturbed(session->display, displaySocket(session->display), session->uid)) {
            displays_.rest(session->display);
        }
        return nullptr;
    }
    waitSessionDBus(session.get());
    waitSessionGeometryUpdate(session.get(), request.width, request.height);
    waitSessionFixSetxkbmapEvdev(session.get());
    waitSessionLoadX11Resources(session.get());
    if (!startProgram(*session, request)) {
        return nullptr;
    }
    runtimeDirectory.keep();
    return session;
}

bool DBusService::checkAccount(Session& session, const std::string& password, LoginAudit& audit) {
    auto pam = std::make_unique<PamService>(config()->settingString("pam:service", "vard"), session.username, password);
    audit.begin(session.display, session.username);
    if (!pam->validateAccount()) {
        return false;
    }
    session.pam = std::move(pam);
    return true;
}

// A home that is missing is no reason to refuse the session, but one that does not answer would hold everything that is
// started in it.
bool DBusService::checkHome(Session& session) {
    const auto look = [home = session.home] {
        std::error_code failed;
        return std::string(fs::is_directory(home, failed) ? "there" : "missing");
    };
    const auto found = callUserScope(session, look, userChildren_.starts, homeLimit);
    if (!found) {
        error("%s: user home does not answer: `%s'", "startSession", session.home.c_str());
        return false;
    }
    session.homeMissing = *found != "there";
    if (session.homeMissing) {
        warning("%s: user home not found: `%s'", "startSession", session.home.c_str());
    }
    return true;
}

void DBusService::sessionMountProfile(Session* session) {
    if (session == nullptr || session->profile) {
        return;
    }
    const auto settings = config();
    session->profile =
        profiles_.mount(tasks_, session->username, session->home.string(),
                        settings->settingString("pvol:fstype", "ext4"), settings->settingString("pvol:option"));
}

// The labels are read only where they are shown.
void DBusService::logIdentity(const Session& session) {
    if (!isDebugLevel(DebugLevel::Debug)) {
        return;
    }
    debug("%s: user: %s, uid: %d, gid: %d, home: `%s', shell: `%s'", "startSession", session.username.c_str(),
          static_cast<int>(session.uid), static_cast<int>(session.gid), session.home.c_str(), session.shell.c_str());
    if (const auto labels = Parsec::userLabels(session.uid)) {
        debug("%s: PARSEC MAC for user: %s, min label (lev: %u, cat:0x%016lx), max label (lev: %u, cat:0x%016lx)",
              "startSession", session.username.c_str(), labels->min.level, labels->min.categories, labels->max.level,
              labels->max.categories);
    }
    if (const auto integrity = Parsec::userIntegrity(session.uid)) {
        debug("%s: PARSEC MIC for user: %s, ilev: %u", "startSession", session.username.c_str(), *integrity);
    }
}

// The table's lock, which the watcher takes too, keeps it from collecting a program that ends at once before the
// session is in its slot; the child list's must not be held over a fork, which may wait for look-ups.
bool DBusService::startProgram(Session& session, const StartRequest& request) {
    auto child = runSessionOpen(&session, request.program, request.args);
    if (!child) {
        return false;
    }
    session.pid2 = child->process();
    childWaits_.add(std::move(*child));
    session.pam->setSessionOpened();
    session.xsession = request.program;
    return true;
}

// A desktop that starts without a home sets the screen size back, more than once.
void DBusService::repeatGeometry(const SessionPtr& session, unsigned short width, unsigned short height) {
    tasks_.run("repeatGeometry", [this, session, width, height] {
        for (const auto pause : {3000ms, 12000ms}) {
            const auto end = std::chrono::steady_clock::now() + pause;
            while (std::chrono::steady_clock::now() < end) {
                if (session->ended || !tasks_.sleep(100ms)) {
                    return; // holding the record longer would keep its display from being used again
                }
            }
            waitSessionGeometryUpdate(session.get(), width, height);
        }
    });
}

} // namespace Vard
