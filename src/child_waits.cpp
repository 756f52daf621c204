// Children waited for in the background.
#include "child_waits.h"

#include "exceptions.h"
#include "logger.h"

#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <thread>

namespace Vard {

using namespace std::chrono_literals;

namespace {

constexpr auto stopLook = 50ms; // between two looks whether a child is stopped

} // namespace

int waitProcessPid(pid_t pid) {
    Syslog::debug("%s: wait pid: %d", "waitProcessPid", pid);
    // The end is waited for apart from the status, which a tracer may keep for ever.
    siginfo_t info{};
    const bool isChild = ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0;
    const auto process = isChild ? ProcessHandle::of(pid) : ProcessHandle{};
    while (!process.endedBy(Deadline::in(1h))) {
    }
    const int status = OwnChildren::reap(pid).value_or(-1);
    Utils::syslogWaitStatus(status, "waitProcessPid", pid);
    return status;
}

// The handle is taken before anybody waits: once reaped, the number could be another process's.
ChildWait::ChildWait(BackgroundTasks& tasks, pid_t pid, std::function<void()> afterwards)
    : OverdueChild(ProcessHandle::of(pid)),
      pid_(pid),
      task_(std::make_shared<std::packaged_task<int()>>([pid, after = std::move(afterwards)]() mutable {
          const int status = waitProcessPid(pid);
          if (after) {
              runGuarded("waitProcessPid", after);
              after = nullptr; // the future would keep what it holds until somebody takes the status
          }
          return status;
      })),
      status_(task_->get_future()) {
    if (!process()) {
        Utils::syslogErrno("ChildWait", "pidfd_open", errno);
        ::kill(pid, SIGKILL); // still ours and not reaped, so the number is its own
        OwnChildren::release(pid, 0s);
        throw vard_error("ChildWait");
    }
    const auto wait = [&tasks, task = task_, process = process()] {
        if (tasks.await(process.descriptor())) {
            (*task)();
        }
    };
    if (tasks.run("waitProcessPid", wait)) {
        task_.reset();
    }
}

// Without a thread of its own, the child is reaped here as soon as it has ended.
void ChildWait::reapWithoutThread() {
    siginfo_t info{};
    if (task_ && ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
        info.si_pid == pid_) {
        (*task_)();
        task_.reset();
    }
}

bool ChildWait::ready(const Deadline& deadline) {
    if (!valid()) { // the status was taken by somebody who then failed
        return true;
    }
    reapWithoutThread();
    // A wait until a moment that has passed is a system call all the same; most looks are of that kind.
    const auto state = deadline.passed() ? status_.wait_for(0s) : status_.wait_until(deadline.time());
    return !task_ && state == std::future_status::ready;
}

int ChildWait::get() {
    if (task_) {
        (*task_)();
        task_.reset();
    }
    try {
        return status_.valid() ? status_.get() : -1;
    } catch (const std::exception&) { // what the wait failed of is told; the child's end must not hold up others
        return -1;
    }
}

bool ChildWait::endedBy(const Deadline& end) {
    while (task_ && !ready({}) && !end.passed()) {
        std::this_thread::sleep_for(20ms);
    }
    return ready(end);
}

void ChildWaits::add(ChildWait child) {
    const std::scoped_lock lock(mutex_);
    if (closed_) { // nobody would end it
        child.kill("ChildWaits");
    }
    children_.push_back(std::move(child));
}

// That the waiting begins before the entry in the list is seen by nobody: only the list is looked at.
ProcessHandle ChildWaits::watch(BackgroundTasks& tasks, pid_t pid, std::function<void()> afterwards) {
    Syslog::info("%s: pid: %d", "saveWaitPidBackground", pid);
    ChildWait child(tasks, pid, std::move(afterwards));
    ProcessHandle process = child.process();
    add(std::move(child));
    return process;
}

bool ChildWaits::holds(pid_t pid) {
    const std::scoped_lock lock(mutex_);
    return std::ranges::any_of(children_, [pid](const auto& child) { return child.valid() && child.pid() == pid; });
}

void ChildWaits::collect(const char* func, const std::function<bool(const ProcessHandle& process)>& ended) {
    const std::scoped_lock lock(mutex_);
    // One deadline for the whole pass: a millisecond for each of 400 children would hold both locks for most of a
    // second.
    const auto deadline = Deadline::in(1ms);
    children_.remove_if([&](ChildWait& child) {
        if (child.ready(deadline)) {
            if (!ended(child.process())) {
                return false;
            }
            Utils::syslogWaitStatus(child.get(), func, child.pid());
            return true;
        }
        child.killOverdue(func);
        return child.beyondReach(func) && ended(child.process());
    });
}

void ChildWaits::endAll(const char* func) {
    const std::scoped_lock lock(mutex_);
    closed_ = true;
    if (children_.empty()) {
        return;
    }
    Syslog::warning("%s: running childs: %u, killed all", func, static_cast<unsigned>(children_.size()));
    for (const auto& child : children_) {
        child.process().terminate();
    }
    std::this_thread::sleep_for(100ms);
    const auto deadline = Deadline::in(endGrace);
    for (auto& child : children_) {
        while (!deadline.passed() && !child.endedBy(Deadline::in(stopLook))) {
            child.killOverdue(func); // a stopped one cannot obey
        }
        if (!child.endedBy({})) {
            child.kill(func);
        }
    }
    const auto last = Deadline::in(killedGrace);
    for (auto& child : children_) {
        if (!child.endedBy(last)) {
            Syslog::warning("%s: killed child does not end, pid: %d", func, child.pid());
        }
    }
    children_.clear();
}

} // namespace Vard
