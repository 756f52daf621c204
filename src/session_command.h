// Running programs inside a session.
#pragma once

#include "child_waits.h"
#include "session.h"

#include <filesystem>
#include <functional>
#include <list>
#include <optional>
#include <string>

namespace Vard {

/// A tool run in a session that has not ended after this long is killed, so that a user who stops it cannot hold up the
/// service. The tools that prepare its desktop get only the short limit until one has ended in time again.
inline constexpr std::chrono::milliseconds toolLimit{5000};
inline constexpr std::chrono::milliseconds shortToolLimit{500};

/// The variables of every program of the session: the user's bus address where there is one, then the session's own.
std::list<std::string> sessionEnvironment(const Session& session);

/// Starts a program in a session: as its user, with its environment, `environment` on top, and the user's bus address
/// where there is one. With `log` its outputs go to the session's command log, else to /dev/null. The caller registers
/// or awaits the result. Throws vard_error, after an error line, when it cannot be started.
ChildWait runSessionCommand(const Session& session, const std::filesystem::path& program,
                            const std::list<std::string>& args, const std::list<std::string>& environment, bool log);

/// Waits for a tool that prepares the session's desktop, and logs its status under `name`; blocks for its limit and a
/// second at most.
void waitSessionCommand(const Session& session, ChildWait& tool, const char* name);

/// Starts the session's program under a supervisor, a forked child named "vard_manager" that opens the PAM session as
/// root, starts the program as the user, gives up root and waits. SIGTERM to the supervisor ends the program and
/// everything it left behind; the supervisor's end means that nothing of the session program is left. None, after an
/// error line, when there is no session, no such program, or the fork failed. `session.pam` must be set for it to
/// start.
std::optional<ChildWait> runSessionOpen(const Session* session, const std::filesystem::path& program,
                                        const std::list<std::string>& args);

/// Runs `function` in a forked child that has taken the user's identity and integrity level, and returns what it
/// returned, cut to 64 KiB. Empty when the child failed or took longer than `limit`, which
/// ends it. Throws vard_error when it cannot be started.
std::string callUserScope(const Session& session, const std::function<std::string()>& function,
                          std::chrono::milliseconds limit = toolLimit);

} // namespace Vard
