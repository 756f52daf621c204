// How long there is still to wait.
#pragma once

#include <algorithm>
#include <chrono>
#include <compare>
#include <cstdint>
#include <limits>

namespace Vard {

/// A moment until which something is waited for. Of two, the sooner is the lesser. Any thread.
class Deadline {
public:
    /// Goes on evenly, whoever sets the machine's time.
    using Clock = std::chrono::steady_clock;

    /// One that has passed: whoever is given it only looks.
    constexpr Deadline() = default;
    /// Passes at that moment.
    constexpr Deadline(Clock::time_point time) : time_(time) {} // NOLINT(*-explicit-*): any moment is one
    /// So long from now on.
    static Deadline in(Clock::duration time) { return Clock::now() + time; }

    /// What is left of the time, rounded up, so that whoever sleeps through it finds the deadline passed; never
    /// negative.
    [[nodiscard]] std::chrono::milliseconds left() const {
        return std::max(std::chrono::ceil<std::chrono::milliseconds>(time_ - Clock::now()), {});
    }
    /// The same for poll().
    [[nodiscard]] int pollTime() const {
        return static_cast<int>(std::min<int64_t>(left().count(), std::numeric_limits<int>::max()));
    }
    /// True from the moment on.
    [[nodiscard]] bool passed() const { return Clock::now() >= time_; }
    /// The moment.
    [[nodiscard]] Clock::time_point time() const { return time_; }

    /// Compares the moments.
    auto operator<=>(const Deadline&) const = default;

private:
    Clock::time_point time_{};
};

} // namespace Vard
