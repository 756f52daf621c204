// Detached work that is counted and never outlives the service.
#include "background_tasks.h"

#include "logger.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <exception>
#include <memory>
#include <thread>

namespace Vard {

void runGuarded(const char* name, const std::function<void()>& task) noexcept {
    try {
        task();
    } catch (const std::exception& err) {
        Syslog::error("%s: exception: %s", name, err.what());
    } catch (...) {
        Syslog::error("%s: exception: %s", name, "unknown");
    }
}

BackgroundTasks::BackgroundTasks() : abandoned_(::eventfd(0, EFD_CLOEXEC)) {}

BackgroundTasks::~BackgroundTasks() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return running_ == 0; });
}

bool BackgroundTasks::run(const char* name, std::function<void()> task) noexcept {
    try {
        {
            const std::scoped_lock lock(mutex_);
            ++running_;
        }
        std::thread([this, name, work = std::move(task)]() mutable {
            runGuarded(name, work);
            work = nullptr; // what it holds may use the service, which lives only while this is counted
            ended();
        }).detach();
        return true;
    } catch (const std::exception& err) {
        Syslog::error("%s: no thread: %s", name, err.what());
        ended();
        return false;
    }
}

// Under the lock to the end: the owner may destroy this object as soon as the count is zero.
void BackgroundTasks::ended() {
    const std::scoped_lock lock(mutex_);
    --running_;
    changed_.notify_all();
}

void BackgroundTasks::runAnyway(const char* name, std::function<void()> task) {
    const auto held = std::make_shared<std::function<void()>>(std::move(task));
    const auto once = [held] { std::exchange(*held, nullptr)(); };
    if (!run(name, once)) {
        once();
    }
}

bool BackgroundTasks::sleep(std::chrono::milliseconds duration) {
    std::unique_lock lock(mutex_);
    return !changed_.wait_for(lock, duration, [this] { return stopping_; });
}

void BackgroundTasks::stop() {
    const std::scoped_lock lock(mutex_);
    stopping_ = true;
    changed_.notify_all();
}

bool BackgroundTasks::stopping() const {
    const std::scoped_lock lock(mutex_);
    return stopping_;
}

bool BackgroundTasks::await(int readable) const {
    std::array<pollfd, 2> entries{{{readable, POLLIN, 0}, {abandoned_.get(), POLLIN, 0}}};
    int ready = 0;
    while ((ready = ::poll(entries.data(), entries.size(), -1)) < 0 && errno == EINTR) {
    }
    return ready < 0 || entries[0].revents != 0; // whoever cannot be waited for is waited for in another way
}

void BackgroundTasks::abandon() { ::eventfd_write(abandoned_.get(), 1); }

bool BackgroundTasks::drain(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [this] { return running_ == 0; });
}

} // namespace Vard
