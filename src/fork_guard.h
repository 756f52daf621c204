// Keeps forks away from calls that hold the C library's own locks.
#pragma once

namespace Vard {

/// While any thread holds one, fork waits: a forked child has only the forking thread, and would find a lock that
/// another thread held (the name service's, syslog's) taken for ever. For a holder that hangs it waits three seconds,
/// once. Holders do not wait for each other. A thread may hold several, and may itself fork meanwhile. Any thread; not
/// in a signal handler.
class ForkGuard {
public:
    ForkGuard();
    ~ForkGuard();
    ForkGuard(const ForkGuard&) = delete;
    ForkGuard& operator=(const ForkGuard&) = delete;
};

} // namespace Vard
