// The ends of sessions and of their clients' connections on request.
#pragma once

#include "session_table.h"

#include <cstdint>
#include <string>

namespace Vard {

// Nothing is torn down here: one process is told to end, and the watchers do the rest, so that every cause of a
// session's end takes the same road. Each logs under the name of the request. Main thread.

/// Ends the user's first session by slot; false, after a warning, when there is none.
bool endUserSession(SessionTable& table, const std::string& username);
/// Ends the session; false, after a warning, for an unknown one.
bool endSession(SessionTable& table, uint32_t sid);
/// Tells the transport of the session to end; false when the session is unknown, after a warning, or has none.
bool disconnectSession(SessionTable& table, uint32_t sid);

} // namespace Vard
