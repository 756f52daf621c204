// Views of the session table for callers outside: rows and JSON texts.
#pragma once

#include "session_table.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Vard {

// Each takes the table's lock. Any thread.

/// One session in the administrators' table.
struct SessionRow {
    uint32_t display = 0;
    std::string username;
    std::string start; ///< local time, "2026-01-31 23:59:59"
    uint32_t age = 0; ///< whole seconds
    uint32_t uid = 0;
    uint32_t gid = 0;
};

/// How many sessions have the process.
uint32_t countSessions(SessionTable& table, ProcessHandle SessionState::*process);

/// User and id of every session in slot order; valid UTF-8.
std::vector<std::pair<std::string, uint32_t>> sessionNames(SessionTable& table);

/// All sessions in slot order; the texts are valid UTF-8.
std::vector<SessionRow> sessionRows(SessionTable& table);

/// The whole state of a session as a JSON object. The members "depth", "width" and "height" are there only when the
/// session's X server answers within `limit`; the table is not held while it is waited for. Bytes are as they are in
/// the record.
std::string sessionJson(SessionTable& table, const Session& session, std::chrono::milliseconds limit);

/// A JSON array of the sessions' objects, in their order; the X servers together are waited for no longer than about
/// two seconds, and 20 ms for each beyond that. What exceeds a bus message is left out, with a warning.
std::string sessionsJson(SessionTable& table, const std::vector<std::shared_ptr<Session>>& sessions);

} // namespace Vard
