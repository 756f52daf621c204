// The children that this process started, told from those that it adopted: what its children left behind.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <vector>

namespace Vard {

/// A killed child that is still there after this long counts as ended: not even that signal reaches it.
inline constexpr std::chrono::seconds killedGrace{1};

/// The children that this process started itself and has not reaped yet. Any thread.
namespace OwnChildren {

/// fork() that remembers the child; in the child it only forks. Errno is fork's.
pid_t fork();
/// The children of the first thread, its own and those that it adopted, as the kernel lists them.
std::vector<pid_t> listed();
/// Reaps a child that has ended and returns its raw wait status. None when that cannot be done for a second, since
/// somebody traces it and does not let it go: it is released then. Blocks for that second at most.
std::optional<int> reap(pid_t pid);
/// Nobody waits for the child any more: it is reaped when it ends, and ended, as what is adopted, when it is still
/// there after `limit`.
void release(pid_t pid, std::chrono::steady_clock::duration limit);

} // namespace OwnChildren

/// While one lives, somebody else's code (a PAM module) may fork on the calling thread: children that come meanwhile
/// are left alone, and what that code leaves running as root is never taken for a session's. Any thread.
class ForeignForks {
public:
    ForeignForks();
    ~ForeignForks();
    ForeignForks(const ForeignForks&) = delete;
    ForeignForks& operator=(const ForeignForks&) = delete;

private:
    std::vector<pid_t> before_; // already adopted when it began
};

/// Makes this process adopt what its children leave behind (a program that killed its supervisor, a tool's own
/// children), and ends it: SIGTERM, then SIGKILL after a moment. One thread at a time, but for any().
class AdoptedChildren {
public:
    /// From SIGTERM to SIGKILL.
    static constexpr std::chrono::seconds patience{2};
    /// What a released child has at the most once all is to end.
    static constexpr std::chrono::seconds lastPatience{5};

    /// Begins to adopt. Call on the main thread.
    static void adopt();
    /// Looks once: tells them to end, with a warning under `func` for each user, kills those that stay and all that
    /// come after them, reaps those that ended. The number of those that are left, released ones included, without
    /// those that nothing ends.
    size_t endOnce(const char* func);
    /// Looks again and again until none is left, released ones included, or until none can be killed. Blocks for
    /// lastPatience, patience and a second at most.
    void endAll(const char* func);
    /// True while one of that user's is there, ended or not. Any thread.
    static bool any(uid_t uid);

private:
    using Clock = std::chrono::steady_clock;

    /// What one look found: those that are left, and how many were killed for the first time.
    struct Look {
        size_t left = 0;
        size_t killed = 0;
    };
    /// What a user's leftovers were told: when first and last, and which were killed.
    struct Told {
        Clock::time_point first;
        Clock::time_point last;
        std::set<pid_t> killed;
    };

    size_t end(const char* func, Clock::duration mostLeft);
    /// Reaps what has ended; of the others, those that are to end now. Counts what has time left, or what nobody can
    /// tell to be adopted.
    static std::vector<pid_t> take(Clock::duration mostLeft, Look& look);
    Look endSeen(const char* func, Clock::duration mostLeft);

    std::map<uid_t, Told> told_;
};

} // namespace Vard
