// Detached work that is counted and never outlives the service.
#pragma once

#include "file_descriptor.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace Vard {

/// Starts every background thread of the process, counts them, and lets the owner wait for all. Any thread.
class BackgroundTasks {
public:
    BackgroundTasks();
    BackgroundTasks(const BackgroundTasks&) = delete;
    BackgroundTasks& operator=(const BackgroundTasks&) = delete;
    /// Blocks until every task has ended.
    ~BackgroundTasks();

    /// Runs `task` on a thread of its own; an exception that leaves it is logged under `name`. False, after an error
    /// line, when no thread can be had: the task did not run.
    bool run(const char* name, std::function<void()> task) noexcept;

    /// The same, but on the calling thread when no other can be had. What `task` holds goes on the thread that ran it:
    /// the end of a session's record, often the last that it holds, may wait for PAM.
    void runAnyway(const char* name, std::function<void()> task);
    /// Sleeps, for a task; false as soon as the service stops.
    bool sleep(std::chrono::milliseconds duration);
    /// Ends all sleeps, now and from now on.
    void stop();
    /// True after stop().
    [[nodiscard]] bool stopping() const;
    /// Waits, for a task, until `readable` is readable; false as soon as such waits are given up.
    [[nodiscard]] bool await(int readable) const;
    /// Gives up all such waits, now and from now on: what is waited for may never come.
    void abandon();
    /// Waits until no task is left; false after `timeout`.
    bool drain(std::chrono::milliseconds timeout);

private:
    void ended();

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    size_t running_ = 0;
    bool stopping_ = false;
    FileDescriptor abandoned_; // readable once waits are given up
};

/// Runs `task`; an exception that leaves it is logged under `name`. Any thread.
void runGuarded(const char* name, const std::function<void()>& task) noexcept;

} // namespace Vard
