// A safe handle on one process, and whose process it is.
#pragma once

#include "deadline.h"

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>

namespace Vard {

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

namespace Utils {

/// The real user of a process; all ones when nobody bears the number. Not the owner of its directory, which is root's
/// as soon as a process says that it must not be dumped. Any thread.
uid_t processOwner(pid_t pid);

} // namespace Utils
} // namespace Vard
