// Limits of sessions, and the end of those beyond them.
#pragma once

#include "session_table.h"

#include <chrono>
#include <cstdint>
#include <functional>

namespace Vard {

// None waits for anything but the table. Any thread.

/// Sets one of a session's limits in seconds; logs under `func`. Nothing for an unknown session.
void setLimit(SessionTable& table, const char* func, uint32_t sid, uint32_t seconds, uint32_t SessionState::*limit);

/// Tells the X server of every session older than its limit to end, at each call anew. `clock` tells the time.
void endSessionsOverLimit(SessionTable& table, const std::function<std::chrono::system_clock::time_point()>& clock =
                                                   std::chrono::system_clock::now);

/// Tells the X server of every seamless session to end whose client has been gone for more than `timeout`; once.
void endIdleSeamlessSessions(SessionTable& table, std::chrono::seconds timeout,
                             std::chrono::steady_clock::time_point now);

} // namespace Vard
