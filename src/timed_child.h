// A child that its starter waits for, but not for ever.
#pragma once

#include "process_handle.h"

#include <chrono>
#include <optional>

namespace Vard {

/// Owns a short-lived child that was started in a process group of its own. Whatever still runs when the object goes is
/// killed with its group. One thread at a time.
class TimedChild {
public:
    /// Between two looks whether somebody has stopped the child.
    static constexpr std::chrono::milliseconds stopLook{20};

    /// Takes over a child that was just started. Kills it, and throws vard_error after an error line, when no
    /// descriptor can be had to hold it by.
    explicit TimedChild(pid_t pid);
    /// Kills a child that was not waited for, and reaps it as wait() does; blocks for two seconds at most.
    ~TimedChild();
    TimedChild(const TimedChild&) = delete;
    TimedChild& operator=(const TimedChild&) = delete;

    /// Waits for the child and returns its raw wait status. One that has not ended after `limit`, or that somebody has
    /// stopped, is killed with its whole group, with a warning under `func`. None, after another warning, when it is
    /// there a second later: the kernel or a tracer holds it, and whoever reaps adopted children has it from then on.
    /// Call once.
    std::optional<int> wait(std::chrono::milliseconds limit, const char* func);
    /// True when wait() had to kill the child.
    [[nodiscard]] bool killed() const { return killed_; }
    /// True when not even that ended it.
    [[nodiscard]] bool stuck() const { return stuck_; }
    /// For how long it has run, or ran until wait() returned.
    [[nodiscard]] std::chrono::steady_clock::duration took() const;
    /// The handle that the child is held by.
    [[nodiscard]] const ProcessHandle& process() const { return process_; }

private:
    [[nodiscard]] bool endsOrStops(const Deadline& end) const;
    std::optional<int> reap(const char* func);

    pid_t pid_;
    ProcessHandle process_;
    std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    std::optional<std::chrono::steady_clock::time_point> end_; // reaped, or left to others
    bool killed_ = false;
    bool stuck_ = false;
};

} // namespace Vard
