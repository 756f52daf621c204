// What the watchers find in the session table, and the sessions they end.
#include "session_watch.h"

#include "logger.h"
#include "user_database.h"

namespace Vard {

namespace {

int64_t wholeSeconds(auto duration) { return std::chrono::duration_cast<std::chrono::seconds>(duration).count(); }

} // namespace

std::vector<SessionEvent> takeEndedSessions(SessionTable& table, ChildWaits& children, UserChildren& users) {
    std::vector<SessionEvent> ended;
    const std::scoped_lock lock(children.mutex(), table.mutex());
    children.collectLocked("stoppedChildsWatcher", [&](const ProcessHandle& process) {
        uid_t user = unknownUid;
        for (auto& slot : table.slotsLocked()) {
            // Not by the number: it may be a newer child's by now.
            if (!slot || (!slot->pid1.sameAs(process) && !slot->pid2.sameAs(process))) {
                continue;
            }
            if (slot->requests > 0) {
                return false; // whoever asked is told of the session first, and then of its end
            }
            user = slot->uid;
            (slot->pid1.sameAs(process) ? slot->pid1 : slot->pid2).reset();
            slot->ended = true;
            ended.push_back({slot, slot->remoteaddr});
            slot.reset();
        }
        if (process.exists()) {
            // A supervisor that PAM holds is root's by its process.
            users.stuck.add(user != unknownUid ? user : Utils::processOwner(process.pid()), process);
        }
        return true;
    });
    return ended;
}

std::vector<SessionEvent> takeLostTransports(SessionTable& table) {
    std::vector<SessionEvent> lost;
    const std::scoped_lock lock(table.mutex());
    for (const auto& session : table.slotsLocked()) {
        if (!session || !session->pid3 || session->pid3.exists()) {
            continue;
        }
        Syslog::debug("%s: transport ended, session id: 0x%08x, pid: %d", "stoppedTransportWatcher", session->sid,
                      session->pid3.pid());
        session->pid3.reset();
        lost.push_back({session, session->remoteaddr});
        if (session->seamless && session->pid1) {
            session->transportEndedAt = std::chrono::steady_clock::now();
        }
    }
    return lost;
}

void endSessionsOverLimit(SessionTable& table, const std::function<std::chrono::system_clock::time_point()>& clock) {
    const std::scoped_lock lock(table.mutex()); // held for seconds while a session starts
    const auto now = clock();
    for (const auto& session : table.slotsLocked()) {
        if (!session || !session->pid1 || session->durationLimit == 0 ||
            wholeSeconds(now - session->start) <= int64_t{session->durationLimit}) {
            continue;
        }
        Syslog::notice("%s: session stopped, id: 0x%08x, display: %u", "durationLimitSessionsWatcher", session->sid,
                       session->display);
        Syslog::debug("%s: kill process: %d", "durationLimitSessionsWatcher", session->pid1.pid());
        session->pid1.terminate();
    }
}

void endIdleSeamlessSessions(SessionTable& table, std::chrono::seconds timeout,
                             std::chrono::steady_clock::time_point now) {
    const std::scoped_lock lock(table.mutex());
    for (const auto& session : table.slotsLocked()) {
        if (!session || !session->seamless || session->pid3 || !session->pid1 ||
            session->transportEndedAt == std::chrono::steady_clock::time_point{}) {
            continue;
        }
        const int64_t idle = wholeSeconds(now - session->transportEndedAt);
        if (idle > timeout.count()) {
            Syslog::notice("%s: session stopped, id: 0x%08x, display: %u, time pass: %u sec", "seamlessTimeoutWatcher",
                           session->sid, session->display, static_cast<unsigned>(idle));
            session->pid1.terminate();
            session->seamless = false; // told once
        }
    }
}

} // namespace Vard
