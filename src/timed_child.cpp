// A child that its starter waits for, but not for ever.
#include "timed_child.h"

#include "exceptions.h"
#include "logger.h"
#include "own_children.h"

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace Vard {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

TimedChild::TimedChild(pid_t pid) : pid_(pid), process_(ProcessHandle::of(pid)) {
    if (!process_) {
        Utils::syslogErrno("TimedChild", "pidfd_open", errno);
        ::kill(pid, SIGKILL); // still ours and not reaped, so the number is its own
        OwnChildren::release(pid, 0s);
        throw vard_error("TimedChild");
    }
}

TimedChild::~TimedChild() {
    if (!end_) {
        process_.killGroup();
        reap("TimedChild");
    }
}

// True when the child has ended; false at `end`, or as soon as it is seen stopped: it would not end by itself.
bool TimedChild::endsOrStops(const Deadline& end) const {
    while (!end.passed()) {
        if (process_.endedBy(std::min(Deadline::in(stopLook), end))) {
            return true;
        }
        if (process_.stopped()) {
            return false;
        }
    }
    return process_.endedBy(end);
}

std::optional<int> TimedChild::wait(std::chrono::milliseconds limit, const char* func) {
    if (!endsOrStops(Deadline::in(limit))) {
        Syslog::warning("%s: child did not end, killed, pid: %d", func, pid_);
        process_.killGroup();
        killed_ = true;
    }
    return reap(func);
}

std::optional<int> TimedChild::reap(const char* func) {
    const bool ended = process_.endedBy(Deadline::in(killedGrace));
    if (!ended) {
        Syslog::warning("%s: killed child does not end, pid: %d", func, pid_);
        OwnChildren::release(pid_, 0s);
    }
    const auto status = ended ? OwnChildren::reap(pid_) : std::nullopt;
    stuck_ = !status;
    end_ = Clock::now();
    return status;
}

Clock::duration TimedChild::took() const { return end_.value_or(Clock::now()) - begin_; }

} // namespace Vard
