// Children waited for in the background.
#pragma once

#include "background_tasks.h"
#include "deadline.h"
#include "overdue_child.h"
#include "own_children.h"
#include "process_handle.h"

#include <chrono>
#include <functional>
#include <future>
#include <list>
#include <memory>
#include <mutex>

namespace Vard {

/// Waits for a child and returns its raw wait status, which is also logged at debug level. Blocks. -1, after an error
/// line, when there is no such child.
int waitProcessPid(pid_t pid);

/// One child, waited for by a background thread, or, when no thread could be had, by whoever asks.
class ChildWait : public OverdueChild {
public:
    /// Takes over the wait for a child that was just started; `afterwards` runs once it has been reaped, before anybody
    /// learns of its end, on whichever thread reaped it. Kills the child, and throws vard_error after an error line,
    /// when no descriptor can be had to hold it by. The thread waits on for a child that everybody else has given up.
    ChildWait(BackgroundTasks& tasks, pid_t pid, std::function<void()> afterwards = {});
    ChildWait(ChildWait&&) = default;
    ChildWait& operator=(ChildWait&&) = default;
    ~ChildWait() = default;

    /// The child's process id.
    [[nodiscard]] pid_t pid() const { return pid_; }
    /// False once the status was taken.
    [[nodiscard]] bool valid() const { return status_.valid(); }
    /// True when the child has ended by `deadline`; a deadline in the past only looks.
    bool ready(const Deadline& deadline);
    /// Takes the status, -1 when there is none; blocks until the child has ended. Afterwards valid() is false.
    int get();
    /// True when the child has ended by `end`.
    bool endedBy(const Deadline& end);

private:
    void reapWithoutThread();

    pid_t pid_ = 0;
    std::shared_ptr<std::packaged_task<int()>> task_; // only set where no thread could be had for it
    std::future<int> status_;
};

/// The list of children waited for, in the order of their start. Each operation takes the list's lock; the session
/// table's may be held before, never be taken under it. Any thread.
class ChildWaits {
public:
    /// Adds a child.
    void add(ChildWait child);
    /// Adds a child that was just started and returns the handle to signal it by; `afterwards` as in ChildWait. Throws
    /// what ChildWait throws.
    ProcessHandle watch(BackgroundTasks& tasks, pid_t pid, std::function<void()> afterwards = {});
    /// True when a child of that pid is still waited for.
    bool holds(pid_t pid);
    /// Calls `ended(process)` for every child that has ended, or that nothing ends, in list order, and forgets it when
    /// that answers true; the others come again at the next call. Kills overdue ones. The status is logged under
    /// `func`.
    void collect(const char* func, const std::function<bool(const ProcessHandle& process)>& ended);
    /// Tells all children to end, waits for each, kills those that stay, leaves those that nothing ends, and empties
    /// the list; what comes later is killed at once. Logs under `func`.
    void endAll(const char* func);

private:
    std::mutex mutex_;
    std::list<ChildWait> children_;
    bool closed_ = false;
};

} // namespace Vard
