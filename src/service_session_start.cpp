// The start of a session: one lock from top to bottom, each step a named function, and every failure undone by the
// objects that the steps left behind.
#include "dbus_service.h"

#include "parsec.h"
#include "profile_volume.h"
#include "session_command.h"
#include "user_database.h"
#include "utils.h"
#include "x_server.h"

#include <algorithm>
#include <thread>

namespace fs = std::filesystem;

namespace Vard {

using namespace std::chrono_literals;

namespace {

constexpr auto leaseWait = 1s; // in one start, for all displays together

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
    bool homeMissing = false;
    SessionPtr session;
    {
        const std::scoped_lock lock(table_.mutex());
        if (auto existing = findReusableLocked(request)) {
            return existing;
        }
        SessionPtr* slot = nullptr;
        auto lease = takeSlotLocked(slot);
        if (!lease) {
            warning("%s: full house", "startSession");
            return nullptr;
        }
        session = buildSession(request, std::move(lease), audit, homeMissing);
        if (!session) {
            return nullptr;
        }
        *slot = session;
    }
    if (homeMissing) {
        repeatGeometry(session, request.width, request.height);
    }
    audit.success();
    return session;
}

DBusService::SessionPtr DBusService::findReusableLocked(const StartRequest& request) {
    for (const auto& session : table_.slotsLocked()) {
        if (session && session->username == request.user && session->xsession.native() == request.program.native()) {
            info("%s: session found, session id: 0x%08x, display: %u", "startSession", session->sid, session->display);
            waitSessionGeometryUpdate(session.get(), request.width, request.height);
            return session;
        }
    }
    return nullptr;
}

// The first slot that is empty and whose display is free.
std::shared_ptr<const uint32_t> DBusService::takeSlotLocked(SessionPtr*& slot) {
    const auto patience = std::chrono::steady_clock::now() + leaseWait;
    auto& slots = table_.slotsLocked();
    for (size_t index = 0; index < slots.size(); ++index) {
        const uint32_t display = table_.displayLocked(index);
        // An old session may have the display in another slot, from before the range was moved; so may the table have
        // more slots than the range.
        if (slots[index] || display > lastDisplay ||
            std::ranges::any_of(slots, [&](const auto& other) { return other && other->sid == display; })) {
            continue;
        }
        if (auto lease = takeDisplayLocked(display, patience)) {
            slot = &slots[index];
            return lease;
        }
    }
    return nullptr;
}

// Not held by the late server of a failed start, not on its way out with an earlier session, not answered by anybody
// else's server.
std::shared_ptr<const uint32_t> DBusService::takeDisplayLocked(uint32_t display,
                                                               std::chrono::steady_clock::time_point patience) {
    std::erase_if(lateServers_, [](const auto& late) { return !late.second.exists(); });
    if (const auto late = lateServers_.find(display); late != lateServers_.end()) {
        late->second.terminate(); // stopped ones must not keep all displays; the watcher kills what does not obey
        warning("%s: display passed over: %u, a late server still runs, pid: %d", "startSession", display,
                late->second.pid());
        return nullptr;
    }
    auto lease = waitLeaseLocked(display, patience);
    if (!lease) {
        warning("%s: display passed over: %u, an earlier session is still ending", "startSession", display);
        return nullptr;
    }
    return claimDisplay(display, displaySocket(display)) ? lease : nullptr;
}

// The record of a session that has just ended is gone in a moment, and so is its server. One that stays must not hold
// the logins of others for longer.
std::shared_ptr<const uint32_t> DBusService::waitLeaseLocked(uint32_t display,
                                                             std::chrono::steady_clock::time_point end) {
    auto lease = table_.leaseLocked(display);
    while (!lease && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(5ms);
        lease = table_.leaseLocked(display);
    }
    return lease;
}

DBusService::SessionPtr DBusService::newRecord(const StartRequest& request, std::shared_ptr<const uint32_t> lease) {
    const UserInfo user = Utils::getUserInfo(request.user);
    auto session = std::make_shared<Session>(tasks_);
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
                                                  LoginAudit& audit, bool& homeMissing) {
    auto session = newRecord(request, std::move(lease));
    RuntimeDirectory runtimeDirectory(session->runtimedir, session->username);
    if (!runtimeDirectory.valid()) {
        return nullptr;
    }
    if (!checkAccount(*session, request.password, audit)) {
        return nullptr;
    }
    homeMissing = !checkHome(*session);
    if (config()->settingBoolean("pvol:enable", false)) {
        sessionMountProfile(session.get());
    }
    std::vector<uint8_t> cookie;
    const Utils::WipeGuard cookieGuard(cookie);
    if (!startDisplay(*session, request, cookie)) {
        return nullptr;
    }
    logIdentity(*session);
    if (!connectDisplay(*session, cookie)) {
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

bool DBusService::checkHome(const Session& session) {
    std::error_code failed;
    if (fs::is_directory(session.home, failed)) {
        return true;
    }
    warning("%s: user home not found: `%s'", "startSession", session.home.c_str());
    return false;
}

void DBusService::sessionMountProfile(Session* session) {
    if (session == nullptr || session->profileMounted) {
        return;
    }
    const auto settings = config();
    session->profileMounted =
        mountProfile(session->username, session->home.string(), settings->settingString("pvol:fstype", "ext4"),
                     settings->settingString("pvol:option"));
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

// Under the child list's lock, so that the watcher cannot collect a program that ends at once before it is in the list.
bool DBusService::startProgram(Session& session, const StartRequest& request) {
    const std::scoped_lock lock(childWaits_.mutex());
    auto child = runSessionOpen(&session, request.program, request.args);
    if (!child) {
        return false;
    }
    session.pid2 = child->process();
    childWaits_.addLocked(std::move(*child));
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
