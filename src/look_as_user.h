// Looks into users' files, under the users' own identity.
#pragma once

#include "session.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace Vard {

/// Runs `function` in a forked child that has taken the user's identity and integrity level, and returns what it
/// returned, cut to 64 KiB. None, after a log line, when the child failed, or took longer than `limit` or than the
/// service has `patience` with the user (one of session.users()). Throws vard_error, after an error line, when the
/// child cannot be started.
std::optional<std::string> callUserScope(const Session& session, const std::function<std::string()>& function,
                                         Patience& patience, std::chrono::milliseconds limit = Patience::usual);

} // namespace Vard
