// What the watchers find in the session table: children that have ended, transports that have gone.
#include "session_watch.h"

#include "logger.h"

namespace Vard {

namespace {

// Not by the number: it may be a newer child's by now.
std::shared_ptr<Session> sessionOf(const TableView& sessions, const ProcessHandle& process) {
    for (const auto& session : sessions.sessions()) {
        const auto& state = sessions.state(*session);
        if (state.pid1.sameAs(process) || state.pid2.sameAs(process)) {
            return session;
        }
    }
    return nullptr;
}

// Lets go of the process that has ended, of the two that a session cannot be without.
void forget(SessionState& state, const ProcessHandle& process) {
    (state.pid1.sameAs(process) ? state.pid1 : state.pid2).reset();
}

} // namespace

std::vector<SessionEvent> takeEndedSessions(SessionTable& table, ChildWaits& children, UserChildren& users) {
    std::vector<SessionEvent> ended;
    auto sessions = table.lock();
    children.collect("stoppedChildsWatcher", [&](const ProcessHandle& process) {
        const auto session = sessionOf(sessions, process);
        if (session && session->requests > 0) {
            return false; // whoever asked is told of the session first, and then of its end
        }
        if (session) {
            auto& state = sessions.state(*session);
            forget(state, process);
            ended.push_back({session, state.remoteaddr});
            sessions.remove(*session);
        }
        if (process.exists()) {
            // A supervisor that PAM holds is root's by its process.
            users.stuck.add(session ? session->uid : Utils::processOwner(process.pid()), process);
        }
        return true;
    });
    return ended;
}

std::vector<SessionEvent> takeLostTransports(SessionTable& table) {
    std::vector<SessionEvent> lost;
    const auto sessions = table.lock();
    for (const auto& session : sessions.sessions()) {
        auto& state = sessions.state(*session);
        if (!state.pid3 || state.pid3.exists()) {
            continue;
        }
        Syslog::debug("%s: transport ended, session id: 0x%08x, pid: %d", "stoppedTransportWatcher", session->sid,
                      state.pid3.pid());
        state.pid3.reset();
        lost.push_back({session, state.remoteaddr});
        if (state.seamless && state.pid1) {
            state.transportEndedAt = std::chrono::steady_clock::now();
        }
    }
    return lost;
}

} // namespace Vard
