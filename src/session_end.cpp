// The ends of sessions and of their clients' connections on request.
#include "session_end.h"

#include "logger.h"

namespace Vard {

namespace {

/// Tells a session's process to end, if there is one.
bool endProcess(const ProcessHandle& process, const char* func) {
    if (process) {
        Syslog::info("%s: kill process: %d", func, process.pid());
        process.terminate();
    }
    return static_cast<bool>(process);
}

std::shared_ptr<Session> find(const SessionTable& table, uint32_t sid, const char* func) {
    auto found = table.findSession(sid);
    if (!found) {
        Syslog::warning("%s: session not found: 0x%08x", func, sid);
    }
    return found;
}

} // namespace

bool endUserSession(SessionTable& table, const std::string& username) {
    const auto sessions = table.lock();
    for (const auto& session : sessions.sessions()) {
        if (session->username == username) {
            endProcess(sessions.state(*session).pid1, "busSessionShutdown");
            return true;
        }
    }
    Syslog::warning("%s: session not found: %s", "busSessionShutdown", username.c_str());
    return false;
}

bool endSession(SessionTable& table, uint32_t sid) {
    const auto found = find(table, sid, "vardSessionShutdown");
    if (found) {
        const auto sessions = table.lock();
        endProcess(sessions.state(*found).pid1, "vardSessionShutdown");
    }
    return found != nullptr;
}

bool disconnectSession(SessionTable& table, uint32_t sid) {
    const auto found = find(table, sid, "vardDisconnect");
    if (!found) {
        return false;
    }
    const auto sessions = table.lock();
    auto& state = sessions.state(*found);
    if (!endProcess(state.pid3, "vardDisconnect")) {
        return false;
    }
    state.remoteaddr.clear();
    return true;
}

} // namespace Vard
