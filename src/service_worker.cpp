// The worker thread and what it watches.
#include "dbus_service.h"
#include "dispatcher.h"
#include "session_limits.h"
#include "session_watch.h"
#include "stop_request.h"

#include <array>
#include <set>
#include <thread>
#include <utility>

namespace Vard {

using namespace std::chrono_literals;

namespace {

constexpr auto tick = 50ms;
constexpr auto farewell = 250ms; // for the last signal to go out

/// A task of the worker thread with its period.
struct PeriodicTask {
    const char* name;
    std::chrono::milliseconds period;
    std::function<void()> run;
    std::chrono::steady_clock::time_point last = std::chrono::steady_clock::now();

    // The time is taken before the run, so that a slow run does not push the next one back. Nothing may leave the
    // thread.
    void runIfDue() {
        const auto now = std::chrono::steady_clock::now();
        if (now - last <= period) {
            return;
        }
        last = now;
        runGuarded(name, run);
    }
};

} // namespace

void DBusService::worker() {
    std::array tasks{
        PeriodicTask{"reloadConfigWatcher", 3s, [&] { reloadConfigWatcher(); }},
        PeriodicTask{"stoppedChildsWatcher", 600ms, [&] { stoppedChildsWatcher(); }},
        PeriodicTask{"stoppedTransportWatcher", 750ms, [&] { stoppedTransportWatcher(); }},
        PeriodicTask{"durationLimitSessionsWatcher", 3s, [&] { durationLimitSessionsWatcher(); }},
        PeriodicTask{"seamlessTimeoutWatcher", 21s, [&] { seamlessTimeoutWatcher(); }},
        PeriodicTask{"sessionUsersWatcher", 600ms, [&] { sessionUsersWatcher(); }},
    };
    while (serviceRunning && busAlive()) {
        for (auto& task : tasks) {
            task.runIfDue();
        }
        std::this_thread::sleep_for(tick);
    }
    requestStop();
    signals_.vardStopped();
    std::this_thread::sleep_for(farewell);
    serviceDispatcher.leave();
}

// The library goes on without a bus, deaf: nobody could reach the service any more.
bool DBusService::busAlive() {
    if (signals_.alive() && (!conn().connected() || serviceDispatcher.hungUp())) {
        error("%s: connection to the system bus lost, stopping", "busAlive");
        signals_.busLost();
    }
    return signals_.alive();
}

// Neither the bus nor the audit socket is waited for on this thread, unless no other can be had. The task never takes
// the table's lock: a new session may hold it while it waits for this one to be gone.
void DBusService::stoppedChildsWatcher() {
    for (auto& event : takeEndedSessions(table_, children_, users_)) {
        tasks_.runAnyway("sessionEnded", [this, event = std::move(event)] {
            const auto& session = *event.session;
            auditUserMessage(session.display, event.address.c_str(), auditMessageType, "VARD:SessionLogout",
                             session.username, true);
            signals_.sessionDisconnected(session.sid);
            signals_.sessionShutdown(session.sid);
        });
    }
    adopted_.endOnce("stoppedChildsWatcher");
    users_.stuck.forgetEnded();
    displays_.forgetEnded();
}

void DBusService::stoppedTransportWatcher() {
    for (auto& event : takeLostTransports(table_)) {
        tasks_.runAnyway("transportEnded", [this, event = std::move(event)] {
            const auto& session = *event.session;
            auditUserMessage(session.display, event.address.c_str(), auditMessageType, "VARD:SessionDisconnect",
                             session.username, true);
            signals_.sessionDisconnected(session.sid);
        });
    }
}

void DBusService::durationLimitSessionsWatcher() { endSessionsOverLimit(table_); }

void DBusService::seamlessTimeoutWatcher() {
    const std::chrono::seconds timeout(config_.settings()->setting(Settings::seamlessTimeout));
    endIdleSeamlessSessions(table_, timeout, std::chrono::steady_clock::now());
}

void DBusService::sessionUsersWatcher() {
    std::set<std::string> names;
    for (const auto& session : table_.lock().sessions()) {
        names.insert(session->username);
    }
    sessionUsers_.update(names);
}

void DBusService::reloadConfigWatcher() { config_.reloadIfChanged(); }

void DBusService::auditUserMessage(const unsigned& display, const char* address, int type, std::string_view operation,
                                   std::string_view user, bool result) {
    audit_.write(display, address, type, operation, user, result);
}

} // namespace Vard
