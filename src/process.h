// Processes: a safe handle on one, and running a program under a user's identity.
#pragma once

#include "deadline.h"

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Vard {

/// The process's argument vector, kept by main so that a child can rename itself; null in tests that never set it.
extern char** programArgv;

/// A handle on one process, by pidfd: a signal never reaches another process that was given the same number later, and
/// numbers that mean groups (0, -1) cannot be held. Copies share the process. Any thread.
class ProcessHandle {
public:
    /// No process.
    ProcessHandle() = default;
    /// The running (or not yet reaped) process `pid`; no process when the number is not positive, nobody bears
    /// it, or no descriptor can be had.
    static ProcessHandle of(pid_t pid);
    /// A process that somebody else reports. It may have gone already: the handle then bears its number and reaches
    /// nobody. When no descriptor can be had for one that is there, it is held by its number and the moment of the
    /// report: whoever began later is a stranger. None when the number is not positive.
    static ProcessHandle reported(pid_t pid);

    /// The process id, 0 when none. Stays after the process has ended.
    [[nodiscard]] pid_t pid() const;
    /// True when a process is held, be it gone or not.
    explicit operator bool() const { return state_ != nullptr; }
    /// True for copies of one handle, whatever numbers others bear; false for two that hold none.
    [[nodiscard]] bool sameAs(const ProcessHandle& other) const { return state_ && state_ == other.state_; }
    /// True while the process is there, as a zombie too.
    [[nodiscard]] bool exists() const;
    /// Waits until `deadline` for the process to end; one in the past only looks. True for a zombie, too, and when
    /// there is no process.
    [[nodiscard]] bool endedBy(const Deadline& deadline) const;
    /// True when somebody has stopped the process, by a signal or as its tracer. Only for one that is not reaped yet.
    [[nodiscard]] bool stopped() const;
    /// What tells of the end, by becoming readable; -1 when there is none.
    [[nodiscard]] int descriptor() const;

    /// Sends SIGTERM and remembers when the process was told first. False when there is none or it has gone.
    bool terminate() const;
    /// Sends SIGKILL.
    bool kill() const;
    /// Sends SIGKILL to the process and to the group that it leads, if any. Only for a child that is not reaped yet:
    /// its number is the group's.
    void killGroup() const;
    /// How long ago terminate() was called first; none when it never was.
    [[nodiscard]] std::optional<std::chrono::steady_clock::duration> toldToEndFor() const;

    /// Lets go of the process; the handle then holds none.
    void reset() { state_.reset(); }

private:
    struct State;
    std::shared_ptr<State> state_;
};

/// What a child needs to become a user, all looked up before the fork.
struct Identity {
    std::string user;
    std::string home;
    std::string shell;
    uid_t uid = static_cast<uid_t>(-1);
    gid_t gid = static_cast<gid_t>(-1);
    std::vector<gid_t> groups; ///< empty for root
    std::optional<uint32_t> integrity; ///< mandatory integrity level, where the platform has one

    /// The identity of a user; logs and throws vard_error when the name is empty or unknown.
    static Identity of(const std::string& user);
    /// USER, LOGNAME, HOME, SHELL, TERM and a default PATH, as NAME=value.
    [[nodiscard]] std::list<std::string> environment() const;
};

/// The argument vector of a program: its path, the arguments, a null. The strings must outlive it.
std::vector<char*> createARGV(const std::string& program, const std::list<std::string>& args);
/// The environment vector of NAME=value strings, in order, ended by a null. The strings must outlive it.
std::vector<char*> createENVP(const std::list<std::string>& environment);

/// Renames the current process to `name` (its thread name, argv[0]; the other arguments are blanked). Only in a forked
/// child.
void changeProcessName(const char* name);
/// Puts the current process into the service's own CPU cgroup (version 1 hierarchy); logs when there is none.
void movingProcessToVardCgroup();

/// How a program is started, beside its user.
struct ChildOptions {
    std::filesystem::path log{}; ///< takes its outputs, opened under the user's identity; empty: /dev/null. Without it
                                 ///< the child ends as a failure: what an earlier one wrote there must not pass for its
    bool endWithParent = false; ///< the program gets SIGTERM when the thread that started it ends before it
    bool ownNetwork = false; ///< in a network namespace of its own; without one the child ends as a failure
    std::filesystem::path seenDirectory{}; ///< seen in the place of `usualDirectory`; empty: none
    std::filesystem::path usualDirectory{};
};

namespace Utils {

/// The real user of a process; all ones when nobody bears the number. Not the owner of its directory, which is root's
/// as soon as a process says that it must not be dumped. Any thread.
uid_t processOwner(pid_t pid);

/// Starts `program` as `user` in a session of its own, with `environment` on top of the identity's variables (later
/// entries win) and standard input from /dev/null. Default signals but SIGINT and SIGHUP ignored, no descriptor
/// inherited: they are closed before anything of the user's is touched. Returns the child's pid, which the caller must
/// wait for. Logs and throws vard_error when the program does not exist, the user is unknown or fork fails. A child
/// that cannot become the user, or cannot execute the program, ends with a non-zero status.
pid_t runChildProcess(const std::filesystem::path& program, const std::list<std::string>& args, const std::string& user,
                      const std::list<std::string>& environment, const ChildOptions& options = {});
/// The same for an identity that was looked up before; what runs between fork and exec touches no database.
pid_t runChildProcess(const std::filesystem::path& program, const std::list<std::string>& args,
                      const Identity& identity, const std::list<std::string>& environment,
                      const ChildOptions& options = {});

/// The child half: becomes the user and executes; never returns, not even by an exception. `argv` and `envp` are built
/// before the fork.
[[noreturn]] void runOwnerCommand(const char* program, const std::vector<char*>& argv, const std::vector<char*>& envp,
                                  const Identity& identity, const ChildOptions& options) noexcept;

/// Gives the current process the user's identity: supplementary groups (but for root), home directory, group, user, and
/// the variables USER, LOGNAME, HOME, SHELL, TERM. False, with an error line, when the ids could not be taken: the
/// caller must end then. Only in a forked child.
bool switchToUser(const std::string& user);
bool switchToUser(const Identity& identity) noexcept;

/// Points standard output and error at the file: created or truncated, mode 0640, a regular file and no link; /dev/null
/// when that fails, and the answer is false then. An empty path means /dev/null. Only in a forked child.
bool redirectOutputsFdTo(const std::filesystem::path& path) noexcept;

/// Points standard input at /dev/null. Only in a forked child.
void redirectInput() noexcept;

/// Puts signal actions and the signal mask back to their defaults in a forked child; SIGINT and SIGHUP are ignored,
/// SIGTERM is handled by `onTerminate` when there is one, also when it came before.
void resetChildSignals(void (*onTerminate)(int) = nullptr) noexcept;
/// Finds the journal's socket among the open descriptors and remembers it for the children forked from now on. Any
/// thread.
void rememberJournalSocket() noexcept;
/// Closes every descriptor above standard error in a forked child, but for the journal's, so that its log lines still
/// arrive, and `keep`. Before a child touches anything of a user's: a file system of the user's own can hold it for
/// ever, with all that it still has open.
void closeInheritedDescriptors(int keep = -1) noexcept;

/// The first 64 KiB of a file; opened without blocking and, unless told, without following a final link, regular files
/// only. Empty when it cannot be read. Call it under the identity of the file's owner.
std::string readSmallFile(const std::filesystem::path& path, bool followLink = false);

} // namespace Utils
} // namespace Vard
