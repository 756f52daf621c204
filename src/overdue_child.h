// A child that was told to end, and does not.
#pragma once

#include "deadline.h"
#include "process_handle.h"

#include <chrono>
#include <optional>
#include <utility>

namespace Vard {

/// A child told to end that is still there after this long is killed.
inline constexpr std::chrono::seconds endGrace{10};

/// Ends a child that is deaf: killed when it was told to end and stays, given up when not even that ends it. One thread
/// at a time.
class OverdueChild {
public:
    /// For a child that is not reaped yet.
    explicit OverdueChild(ProcessHandle process) : process_(std::move(process)) {}

    /// The handle to signal the child by.
    [[nodiscard]] const ProcessHandle& process() const { return process_; }
    /// Whoever still runs at `end` is told to end by killOverdue().
    void endAt(const Deadline& end) { end_ = end; }
    /// Kills the child, with a warning under `func`.
    void kill(const char* func);
    /// Kills the child, with a warning under `func`, when it was told to end more than endGrace ago, or cannot obey
    /// since somebody has stopped it. Once.
    void killOverdue(const char* func);
    /// True, after a warning under `func`, when the child was killed more than killedGrace ago and is still there: the
    /// kernel holds it, and it counts as ended.
    [[nodiscard]] bool beyondReach(const char* func) const;

private:
    ProcessHandle process_;
    std::optional<Deadline> end_;
    std::optional<Deadline> gone_; // of a killed one: when it counts as ended
};

} // namespace Vard
