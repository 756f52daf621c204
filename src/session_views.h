// Views of the session table for callers outside: rows and JSON texts.
#pragma once

#include "session_table.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Vard {

/// One session in the administrators' table.
struct SessionRow {
    uint32_t display = 0;
    std::string username;
    std::string start; ///< local time, "2026-01-31 23:59:59"
    uint32_t age = 0; ///< whole seconds
    uint32_t uid = 0;
    uint32_t gid = 0;
};

/// All sessions in slot order; the texts are valid UTF-8. Takes the table's lock. Any thread.
std::vector<SessionRow> sessionRows(const SessionTable& table);

/// The whole state of a session as a JSON object. The members "depth", "width" and "height" are there only when the
/// session's X server answers within `limit`. Takes the table's lock, but not while it waits for the X server. Bytes
/// are as they are in the record. Any thread.
std::string sessionJson(const SessionTable& table, const Session& session, std::chrono::milliseconds limit);

/// A JSON array of the sessions' objects, in their order; the X servers together are waited for no longer than about
/// two seconds, and 20 ms for each beyond that. What exceeds a bus message is left out, with a warning.
std::string sessionsJson(const SessionTable& table, const std::vector<std::shared_ptr<Session>>& sessions);

} // namespace Vard
