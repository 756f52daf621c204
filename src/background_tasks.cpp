// Detached work that is counted and never outlives the service.
#include "background_tasks.h"

#include "logger.h"

#include <pthread.h>

#include <exception>
#include <thread>

namespace Vard {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t stackSize = 2 << 20; // the sanitizers' own frames are large
#else
constexpr size_t stackSize = 256 << 10;
#endif

} // namespace

void runGuarded(const char* name, const std::function<void()>& task) noexcept {
    try {
        task();
    } catch (const std::exception& err) {
        Syslog::error("%s: exception: %s", name, err.what());
    } catch (...) {
        Syslog::error("%s: exception: %s", name, "unknown");
    }
}

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

bool BackgroundTasks::drain(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [this] { return running_ == 0; });
}

void useSmallThreadStacks() {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) == 0) {
        if (pthread_attr_setstacksize(&attributes, stackSize) == 0) {
            pthread_setattr_default_np(&attributes);
        }
        pthread_attr_destroy(&attributes);
    }
}

} // namespace Vard
