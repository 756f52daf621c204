// A session's transport: which process may be one, and its taking over.
#include "session_transport.h"

#include "logger.h"
#include "process_handle.h"
#include "text.h"
#include "user_database.h"

#include <unistd.h>

#include <limits>
#include <utility>

namespace Vard {

namespace {

// The transport will be told to end one day: a number that the system calls take for a group, the init process and the
// service with its own children are none.
bool possibleTransport(uint32_t pid, ChildWaits& children) {
    if (pid > static_cast<uint32_t>(std::numeric_limits<pid_t>::max())) {
        return false;
    }
    const auto number = static_cast<pid_t>(pid);
    return number != 1 && number != ::getpid() && !children.holds(number);
}

// Whoever names a process has it told to end one day: only root may name those of others.
// One that has gone is nobody's, and so may a caller have.
bool mayName(const ProcessHandle& process, uid_t sessionUser, const std::function<uid_t()>& callerOf) {
    const uid_t owner = Utils::processOwner(process.pid());
    if (owner == sessionUser || !process.exists()) {
        return true;
    }
    const uid_t caller = callerOf();
    return caller == 0 || (caller != unknownUid && caller == owner);
}

} // namespace

bool takeTransport(SessionTable& table, Session& session, const TransportClaim& claim, ChildWaits& children) {
    auto transport = ProcessHandle::reported(static_cast<pid_t>(claim.pid)); // before anybody looks whose it is
    if (!possibleTransport(claim.pid, children) || !mayName(transport, session.uid, claim.caller)) {
        Syslog::error("%s: transport pid refused: %u, session id: 0x%08x", "proxySessionConnected", claim.pid,
                      session.sid);
        return false;
    }
    const auto sessions = table.lock();
    auto& state = sessions.state(session);
    if (state.pid3.exists()) {
        state.pid3.terminate();
    }
    state.remoteaddr = bounded(claim.address, longestAddress);
    state.pid3 = std::move(transport);
    return true;
}

ProcessHandle runningTransport(SessionTable& table, const Session& session) {
    auto transport = table.lock().state(session).pid3;
    return transport.exists() ? transport : ProcessHandle{};
}

} // namespace Vard
