// Running programs inside a session.
#pragma once

#include "child_waits.h"
#include "identity.h"
#include "process_child.h"
#include "session.h"

#include <filesystem>
#include <list>
#include <optional>
#include <string>

namespace Vard {

/// Starts a program in a session: as its user, with its environment, `environment` on top, and the user's bus address
/// where there is one. With `log` its outputs go to the session's command log, else to /dev/null. The caller registers
/// the result. Throws vard_error, after an error line, when it cannot be started.
ChildWait runSessionCommand(const Session& session, const std::filesystem::path& program,
                            const std::list<std::string>& args, const std::list<std::string>& environment, bool log);
/// The same for the identity of the session's user, looked up before.
ChildWait runSessionCommand(const Session& session, const Identity& identity, const std::filesystem::path& program,
                            const std::list<std::string>& args, const std::list<std::string>& environment, bool log);

/// Runs a tool in a session, as runSessionCommand does but with `options`, and waits for its end as long as the service
/// has patience with the tools of that user. Returns the raw wait status, which is also logged under `name`; none,
/// after a warning, when it was not worth starting or does not end. Throws vard_error, after an error line, when it
/// cannot be started.
std::optional<int> runSessionTool(const Session& session, const char* name, const std::filesystem::path& program,
                                  const std::list<std::string>& args, const ChildOptions& options = {});

/// Starts the session's program under a supervisor, a forked child named "vard_manager" that opens the PAM session as
/// root, starts the program as the user, gives up root and waits. SIGTERM to the supervisor ends the program; the
/// supervisor ends with it, and the service adopts and ends what the program left behind. None, after an error line,
/// when there is no session or the fork failed. `session.pam` must be set for it to start.
std::optional<ChildWait> runSessionOpen(const Session* session, const std::filesystem::path& program,
                                        const std::list<std::string>& args);

} // namespace Vard
