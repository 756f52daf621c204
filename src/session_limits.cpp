// Limits of sessions, and the end of those beyond them.
#include "session_limits.h"

#include "logger.h"

namespace Vard {

namespace {

int64_t wholeSeconds(auto duration) { return std::chrono::duration_cast<std::chrono::seconds>(duration).count(); }

} // namespace

void setLimit(SessionTable& table, const char* func, uint32_t sid, uint32_t seconds, uint32_t SessionState::*limit) {
    Syslog::info("%s: session id: 0x%08x, limit: %u src", func, sid, seconds);
    if (const auto found = table.findSession(sid)) {
        table.lock().state(*found).*limit = seconds;
    }
}

void endSessionsOverLimit(SessionTable& table, const std::function<std::chrono::system_clock::time_point()>& clock) {
    const auto sessions = table.lock(); // held for seconds while a session starts
    const auto now = clock();
    for (const auto& session : sessions.sessions()) {
        const auto& state = sessions.state(*session);
        if (!state.pid1 || state.durationLimit == 0 ||
            wholeSeconds(now - session->start) <= int64_t{state.durationLimit}) {
            continue;
        }
        Syslog::notice("%s: session stopped, id: 0x%08x, display: %u", "durationLimitSessionsWatcher", session->sid,
                       session->display);
        Syslog::debug("%s: kill process: %d", "durationLimitSessionsWatcher", state.pid1.pid());
        state.pid1.terminate();
    }
}

void endIdleSeamlessSessions(SessionTable& table, std::chrono::seconds timeout,
                             std::chrono::steady_clock::time_point now) {
    const auto sessions = table.lock();
    for (const auto& session : sessions.sessions()) {
        auto& state = sessions.state(*session);
        if (!state.seamless || state.pid3 || !state.pid1 ||
            state.transportEndedAt == std::chrono::steady_clock::time_point{}) {
            continue;
        }
        const int64_t idle = wholeSeconds(now - state.transportEndedAt);
        if (idle > timeout.count()) {
            Syslog::notice("%s: session stopped, id: 0x%08x, display: %u, time pass: %u sec", "seamlessTimeoutWatcher",
                           session->sid, session->display, static_cast<unsigned>(idle));
            state.pid1.terminate();
            state.seamless = false; // told once
        }
    }
}

} // namespace Vard
