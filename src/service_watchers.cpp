// The worker thread, children waited for, limits.
#include "dbus_service.h"

#include "bus_boundary.h"
#include "x_server.h"

#include <array>
#include <thread>

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
    if (busAlive_ && !conn().connected()) {
        error("%s: connection to the system bus lost, stopping", "busAlive");
        busAlive_ = false;
    }
    return busAlive_;
}

ProcessHandle DBusService::saveWaitPidBackground(pid_t pid) {
    info("%s: pid: %d", "saveWaitPidBackground", pid);
    ChildWait child(tasks_, pid);
    ProcessHandle process = child.process();
    childWaits_.add(std::move(child));
    return process;
}

void DBusService::stoppedChildsWatcher() {
    std::vector<std::pair<SessionPtr, std::string>> ended; // with the client's address
    {
        const std::scoped_lock lock(childWaits_.mutex(), table_.mutex());
        childWaits_.collectLocked("stoppedChildsWatcher", [&](pid_t pid, int) {
            for (auto& slot : table_.slotsLocked()) {
                if (slot && (slot->pid1.pid() == pid || slot->pid2.pid() == pid)) {
                    (slot->pid1.pid() == pid ? slot->pid1 : slot->pid2).reset();
                    slot->ended = true;
                    ended.emplace_back(slot, slot->remoteaddr);
                    slot.reset();
                }
            }
        });
    }
    // Neither the bus nor the audit socket is waited for on this thread, unless no other can be had.
    for (const auto& [session, address] : ended) {
        const auto notice = [this, session = session, address = address] { sessionEnded(session, address); };
        if (!tasks_.run("sessionEnded", notice)) {
            notice();
        }
    }
}

// Never takes the table's lock: a new session may hold it while it waits for this one to be gone.
void DBusService::sessionEnded(const SessionPtr& session, const std::string& address) {
    auditUserMessage(session->display, address.c_str(), auditMessageType, "VARD:SessionLogout", session->username,
                     true);
    emitSignal([&] { signalSessionDisconnected(session->sid); });
    emitSignal([&] { signalSessionShutdown(session->sid); });
    if (!session->pid1) {
        claimDisplay(session->display,
                     displaySocket(session->display)); // a killed server leaves its socket and its lock
    }
}

void DBusService::vardSessionDurationLimit(const uint32_t& session, const uint32_t& countsec) {
    static_cast<void>(session);
    static_cast<void>(countsec);
    throw not_supported("vardSessionDurationLimit");
}

void DBusService::vardSessionInactivityLimit(const uint32_t& session, const uint32_t& countsec) {
    static_cast<void>(session);
    static_cast<void>(countsec);
    throw not_supported("vardSessionInactivityLimit");
}

} // namespace Vard
