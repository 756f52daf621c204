// What runs in a forked child: it becomes the user and executes a program. Everything it needs from the databases was
// looked up before the fork, and nothing of it ever returns into the service.
#pragma once

#include "identity.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Vard {

/// The process's argument vector, kept by main so that a child can rename itself; null in tests that never set it.
extern char** programArgv;

/// Renames the current process to `name` (its thread name, argv[0]; the other arguments are blanked). Only in a forked
/// child.
void changeProcessName(const char* name);

/// How a program is started, beside its user.
struct ChildOptions {
    std::filesystem::path log{}; ///< takes its outputs, opened under the user's identity; empty: /dev/null. Without it
                                 ///< the child ends as a failure: what an earlier one wrote there must not pass for its
    bool secretArguments = false; ///< the journal, which looks at the command line of who writes a line, has no line of
                                  ///< the child, unless it cannot execute the program
    bool endWithParent = false; ///< the program gets SIGTERM when the thread that started it ends before it
    bool ownNetwork = false; ///< in a network namespace of its own; without one the child ends as a failure
    std::filesystem::path seenDirectory{}; ///< seen in the place of `usualDirectory`; empty: none
    std::filesystem::path usualDirectory{}; ///< an absolute path; only with `seenDirectory`
};

namespace Utils {

/// The child half: becomes the user and executes; never returns, not even by an exception. `argv` and `envp` are built
/// before the fork.
[[noreturn]] void runOwnerCommand(const char* program, const std::vector<char*>& argv, const std::vector<char*>& envp,
                                  const Identity& identity, const ChildOptions& options) noexcept;

/// Gives the current process the user's identity: supplementary groups (but for root), home directory, group, user, and
/// the variables USER, LOGNAME, HOME, SHELL, TERM. False, with an error line, when the ids could not be taken: the
/// caller must end then, as it must for an unknown user. Looks the user up. Only in a forked child. Required; nobody
/// here calls it.
bool switchToUser(const std::string& user);
/// The same with what was looked up before the fork.
bool switchToUser(const Identity& identity) noexcept;

/// Points standard output and error at the file: created or truncated, mode 0640, a regular file and no link; /dev/null
/// when that fails, and the answer is false then. An empty path means /dev/null. Only in a forked child.
bool redirectOutputsFdTo(const std::filesystem::path& path) noexcept;

/// Points standard input at /dev/null. Only in a forked child.
void redirectInput() noexcept;

/// Puts signal actions and the signal mask back to their defaults in a forked child; SIGINT and SIGHUP are ignored,
/// SIGTERM is handled by `onTerminate` when there is one, also when it came before.
void resetChildSignals(void (*onTerminate)(int) = nullptr) noexcept;

/// Ends a forked child so that its parent sees a failure.
[[noreturn]] void endAsFailure() noexcept;

} // namespace Utils
} // namespace Vard
