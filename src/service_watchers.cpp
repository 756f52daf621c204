// The worker thread, children waited for, limits.
#include "dbus_service.h"

#include "session_watch.h"

#include <array>
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

void DBusService::worker(const std::string& path) {
    std::array tasks{
        PeriodicTask{"reloadConfigWatcher", 3s, [&] { reloadConfigWatcher(path); }},
        PeriodicTask{"stoppedChildsWatcher", 600ms, [&] { stoppedChildsWatcher(); }},
        PeriodicTask{"stoppedTransportWatcher", 750ms, [&] { stoppedTransportWatcher(); }},
        PeriodicTask{"durationLimitSessionsWatcher", 3s, [&] { durationLimitSessionsWatcher(); }},
        PeriodicTask{"seamlessTimeoutWatcher", 21s, [&] { seamlessTimeoutWatcher(); }},
    };
    while (serviceRunning && busAlive()) {
        for (auto& task : tasks) {
            task.runIfDue();
        }
        std::this_thread::sleep_for(tick);
    }
    requestStop();
    emitSignal([this] { signalVardStopped(); });
    std::this_thread::sleep_for(farewell);
    serviceDispatcher.leave();
}

// The library goes on without a bus, deaf: nobody could reach the service any more.
bool DBusService::busAlive() {
    if (busAlive_ && (!conn().connected() || serviceDispatcher.hungUp())) {
        error("%s: connection to the system bus lost, stopping", "busAlive");
        busAlive_ = false;
    }
    return busAlive_;
}

// That the waiting begins before the entry in the list is seen by nobody: only the list is looked at.
ProcessHandle DBusService::saveWaitPidBackground(pid_t pid, std::function<void()> afterwards) {
    info("%s: pid: %d", "saveWaitPidBackground", pid);
    ChildWait child(tasks_, pid, std::move(afterwards));
    ProcessHandle process = child.process();
    childWaits_.add(std::move(child));
    return process;
}

// Neither the bus nor the audit socket is waited for on the caller's thread, unless no other can be had.
// What the notice holds, often the last of a session's record, goes on the thread that ran it: the end of a record may
// wait for PAM.
void DBusService::inBackground(const char* name, std::function<void()> notice) {
    const auto held = std::make_shared<std::function<void()>>(std::move(notice));
    const auto once = [held] { std::exchange(*held, nullptr)(); };
    if (!tasks_.run(name, once)) {
        once();
    }
}

void DBusService::stoppedChildsWatcher() {
    for (auto& event : takeEndedSessions(table_, childWaits_, userChildren_)) {
        inBackground("sessionEnded", [this, event = std::move(event)] { sessionEnded(*event.session, event.address); });
    }
    adopted_.endOnce("stoppedChildsWatcher");
    userChildren_.stuck.forgetEnded();
    displays_.forgetEnded();
}

void DBusService::stoppedTransportWatcher() {
    for (auto& event : takeLostTransports(table_)) {
        inBackground("transportEnded",
                     [this, event = std::move(event)] { transportEnded(*event.session, event.address); });
    }
}

void DBusService::durationLimitSessionsWatcher() { endSessionsOverLimit(table_); }

void DBusService::seamlessTimeoutWatcher() {
    const std::chrono::seconds timeout(config()->settingInteger("seamless:timeout", 60));
    endIdleSeamlessSessions(table_, timeout, std::chrono::steady_clock::now());
}

// Never takes the table's lock: a new session may hold it while it waits for this one to be gone.
void DBusService::sessionEnded(const Session& session, const std::string& address) {
    auditUserMessage(session.display, address.c_str(), auditMessageType, "VARD:SessionLogout", session.username, true);
    emitSignal([&] { signalSessionDisconnected(session.sid); });
    emitSignal([&] { signalSessionShutdown(session.sid); });
}

void DBusService::transportEnded(const Session& session, const std::string& address) {
    auditUserMessage(session.display, address.c_str(), auditMessageType, "VARD:SessionDisconnect", session.username,
                     true);
    emitSignal([&] { signalSessionDisconnected(session.sid); });
}

void DBusService::setLimit(const char* func, uint32_t sid, uint32_t seconds, uint32_t Session::*limit) {
    info("%s: session id: 0x%08x, limit: %u src", func, sid, seconds);
    if (const auto found = table_.findSession(sid)) {
        const std::scoped_lock lock(table_.mutex());
        (*found).*limit = seconds;
    }
}

void DBusService::vardSessionDurationLimit(const uint32_t& session, const uint32_t& countsec) {
    setLimit("vardSessionDurationLimit", session, countsec, &Session::durationLimit);
}

void DBusService::vardSessionInactivityLimit(const uint32_t& session, const uint32_t& countsec) {
    setLimit("vardSessionInactivityLimit", session, countsec, &Session::inactivityLimit);
}

} // namespace Vard
