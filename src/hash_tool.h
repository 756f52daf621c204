// The hash line by which transports check a user's password.
#pragma once

#include "json_config.h"
#include "session_table.h"

#include <string>

namespace Vard {

/// Has the hash tool make the line of a session from the password, with the session's domain for version 2
/// (`ntlmv2`), and puts it into the record. False, after an error line, when there is no whole line; the record then
/// keeps what it had. Main thread, without the table.
bool createHashLine(SessionTable& table, Session& session, const std::string& password, bool ntlmv2,
                    const JsonConfig& settings);

} // namespace Vard
