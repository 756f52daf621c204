// Keeps forks away from calls that hold the C library's own locks.
#include "fork_guard.h"

#include "secret.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <new>
#include <shared_mutex>
#include <utility>

namespace Vard {

namespace {

// A module or a name service that hangs must not keep the whole service from starting programs.
constexpr std::chrono::seconds patience{3};
std::atomic<bool> hangs{false}; // waited for in vain: no other fork waits as long before the lock was free once

thread_local int held = 0;
thread_local bool forking = false; // this thread forks, with the lock taken

std::shared_timed_mutex& mutex() {
    static std::shared_timed_mutex instance;
    return instance;
}

// A thread that forks under its own guard (a module that runs a helper) would wait for itself.
void beforeFork() {
    if (held == 0) {
        forking = hangs ? mutex().try_lock() : mutex().try_lock_for(patience);
        hangs = !forking;
    }
}

void afterInParent() {
    if (std::exchange(forking, false)) {
        mutex().unlock();
    }
}

// Nobody who held it exists here, and the lock knows its owner by a thread id that the child does not bear.
void afterInChild() {
    if (held == 0) {
        new (&mutex()) std::shared_timed_mutex;
    }
}

// From the start of the program: a fork under way would not wait for handlers that the first guard registers.
[[maybe_unused]] const int registered =
    Secret::prepareForks() + ::pthread_atfork(beforeFork, afterInParent, afterInChild);

} // namespace

ForkGuard::ForkGuard() {
    if (held++ == 0) {
        mutex().lock_shared();
    }
}

ForkGuard::~ForkGuard() {
    if (--held == 0) {
        mutex().unlock_shared();
    }
}

} // namespace Vard
