// A session's transport: which process may be one, and its taking over.
#pragma once

#include "child_waits.h"
#include "session_table.h"

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>

namespace Vard {

/// A process that a caller names as the transport of a session, and the address of its client.
struct TransportClaim {
    uint32_t pid = 0;
    std::string address;
    std::function<uid_t()> caller; ///< whose claim it is; all ones when nobody can tell any more
};

/// Makes the process the session's transport; the one before is told to end. False, after an error line, when it cannot
/// be one: its number would reach others, or it is somebody else's than the session's user's and the caller's, who is
/// not root. Main thread.
bool takeTransport(SessionTable& table, Session& session, const TransportClaim& claim, ChildWaits& children);

/// The session's transport while one runs; else none.
ProcessHandle runningTransport(SessionTable& table, const Session& session);

} // namespace Vard
