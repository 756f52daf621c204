// The children that this process started, told from those that it adopted: what its children left behind.
#include "own_children.h"

#include "deadline.h"
#include "logger.h"
#include "process_handle.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>
#include <mutex>
#include <new>
#include <string>
#include <thread>

namespace Vard {

using namespace std::chrono_literals;

namespace {

constexpr auto mostRounds = 100ms; // of killing in one look

using Clock = std::chrono::steady_clock;

std::mutex lock;

// Numbers of children that are not reaped yet: nobody else can bear them.
struct Children {
    std::set<pid_t> own;
    std::set<pid_t> settled; // adopted, beyond doubt
    std::set<pid_t> doubtful; // began in foreign code, while a fork of ours had no number yet
    std::set<pid_t> spared; // left running by foreign code
    std::map<pid_t, Clock::time_point> released; // until when each may run
    int foreign = 0; // threads in foreign code
    int forking = 0; // threads in a fork of ours, whose child is not known yet
};
Children children;

// The kernel gives what it reparents to the first thread. What another thread started comes there only with that
// thread's end: released ones may not have come yet.
std::vector<pid_t> strangers() {
    auto result = OwnChildren::listed();
    std::erase_if(result, [](pid_t pid) { return children.own.contains(pid); });
    for (const auto& [pid, until] : children.released) {
        if (std::ranges::find(result, pid) == result.end()) {
            result.push_back(pid);
        }
    }
    return result;
}

bool isChild(pid_t pid) {
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

// While foreign code runs, or a fork of ours, nobody can tell whose a new child is; those that were known before are
// still ours to end.
void settle(const std::vector<pid_t>& found) {
    if (children.foreign > 0 || children.forking > 0) {
        return;
    }
    for (const pid_t pid : found) {
        const bool left =
            children.doubtful.contains(pid) && !children.settled.contains(pid) && Utils::processOwner(pid) == 0;
        (left || children.spared.contains(pid) ? children.spared : children.settled).insert(pid);
    }
    children.doubtful.clear();
}

// A number is its child's until that is reaped, be it in the kernel's list or, for a moment, not.
void forgetReaped() {
    const auto gone = [](pid_t pid) { return !isChild(pid); };
    std::erase_if(children.settled, gone);
    std::erase_if(children.spared, gone);
    std::erase_if(children.released, [&](const auto& child) { return gone(child.first); });
}

// While foreign code runs, it may be waiting for its own.
bool mayReap(pid_t pid) {
    return children.settled.contains(pid) || (children.foreign == 0 && children.spared.contains(pid));
}

} // namespace

// A fork may wait for other threads' look-ups: nobody waits for the lock meanwhile.
pid_t OwnChildren::fork() {
    {
        const std::scoped_lock guard(lock);
        ++children.forking;
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
        new (&lock) std::mutex; // whoever held it, or was changing what it guards, is not here
        new (&children) Children;
        return 0;
    }
    const std::scoped_lock guard(lock);
    --children.forking;
    if (pid > 0) {
        children.own.insert(pid);
    }
    return pid;
}

std::vector<pid_t> OwnChildren::listed() {
    std::ifstream list("/proc/self/task/" + std::to_string(::getpid()) + "/children");
    return {std::istream_iterator<pid_t>(list), {}};
}

// Never a wait without end: the tracer of a child that has ended, who may be its own user, has its status first. The
// number is free for others from the reaping on.
std::optional<int> OwnChildren::reap(pid_t pid) {
    const auto giveUp = Deadline::in(killedGrace);
    for (;;) {
        {
            const std::scoped_lock guard(lock);
            int status = -1;
            const pid_t ended = ::waitpid(pid, &status, WNOHANG);
            if (ended < 0) {
                Utils::syslogErrno("waitProcessPid", "waitpid", errno);
            }
            if (ended != 0) {
                children.own.erase(pid);
                return ended < 0 ? std::nullopt : std::optional(status);
            }
        }
        if (giveUp.passed()) {
            Syslog::warning("%s: ended child is held by its tracer, pid: %d", "OwnChildren", pid);
            release(pid, 0s);
            return std::nullopt;
        }
        std::this_thread::sleep_for(1ms);
    }
}

void OwnChildren::release(pid_t pid, Clock::duration limit) {
    const std::scoped_lock guard(lock);
    children.own.erase(pid);
    children.settled.insert(pid);
    children.released[pid] = Clock::now() + limit;
}

ForeignForks::ForeignForks() {
    const std::scoped_lock guard(lock);
    before_ = strangers();
    settle(before_);
    ++children.foreign;
}

// Only root's, and no child of ours: what a user's session left behind at this moment must not slip through.
ForeignForks::~ForeignForks() {
    const std::scoped_lock guard(lock);
    for (const pid_t pid : strangers()) {
        if (std::ranges::find(before_, pid) == before_.end()) {
            children.doubtful.insert(pid);
        }
    }
    --children.foreign;
}

void AdoptedChildren::adopt() { ::prctl(PR_SET_CHILD_SUBREAPER, 1); }

size_t AdoptedChildren::endOnce(const char* func) { return end(func, Clock::duration::max()); }

// A released child has at most `mostLeft`.
size_t AdoptedChildren::end(const char* func, Clock::duration mostLeft) {
    // What is killed may have forked before, and its child is here at once.
    const auto enough = Deadline::in(mostRounds);
    Look look = endSeen(func, mostLeft);
    while (look.killed > 0 && !enough.passed()) {
        std::this_thread::sleep_for(200us);
        look = endSeen(func, mostLeft);
    }
    return look.left;
}

std::vector<pid_t> AdoptedChildren::take(Clock::duration mostLeft, Look& look) {
    const std::scoped_lock guard(lock);
    auto found = strangers();
    settle(found);
    std::erase_if(found, [](pid_t pid) { return mayReap(pid) && ::waitpid(pid, nullptr, WNOHANG) == pid; });
    forgetReaped();
    std::erase_if(found, [](pid_t pid) { return children.spared.contains(pid); });
    const auto now = Clock::now();
    std::erase_if(found, [&](pid_t pid) {
        const auto child = children.released.find(pid);
        const bool hasTime = child != children.released.end() && child->second > now;
        if (hasTime && child->second - now > mostLeft) {
            child->second = now + mostLeft;
        }
        const bool notYet = hasTime || !children.settled.contains(pid);
        look.left += notYet ? 1 : 0;
        return notYet;
    });
    return found;
}

// All are ours, and only this reaps them, so the numbers are their own. Patience is with the user: one whose processes
// hand over to their children, each new here, would never use it up.
AdoptedChildren::Look AdoptedChildren::endSeen(const char* func, Clock::duration mostLeft) {
    Look look;
    const auto found = take(mostLeft, look);
    const auto now = Clock::now();
    std::erase_if(told_, [&](const auto& told) { return now - told.second.last > patience + killedGrace; });
    for (const pid_t pid : found) {
        const uid_t user = Utils::processOwner(pid);
        const auto [entry, isNew] = told_.try_emplace(user, Told{now, now, {}});
        if (isNew) {
            Syslog::warning("%s: left behind, ended, pid: %d, uid: %u", func, pid, user);
        }
        entry->second.last = now;
        const bool kill = now - entry->second.first > patience;
        ::kill(pid, kill ? SIGKILL : SIGTERM);
        const bool again = kill && !entry->second.killed.insert(pid).second;
        look.killed += kill && !again ? 1 : 0;
        look.left += again && now - entry->second.first > patience + killedGrace ? 0 : 1;
    }
    for (auto& [user, told] : told_) {
        std::erase_if(told.killed, [&](pid_t pid) { return std::ranges::find(found, pid) == found.end(); });
    }
    return look;
}

void AdoptedChildren::endAll(const char* func) {
    const auto giveUp = Deadline::in(lastPatience + patience + killedGrace);
    while (end(func, lastPatience) > 0 && !giveUp.passed()) {
        std::this_thread::sleep_for(20ms);
    }
}

bool AdoptedChildren::any(uid_t uid) {
    std::vector<pid_t> found;
    {
        const std::scoped_lock guard(lock);
        found = strangers();
        std::erase_if(found, [](pid_t pid) { return children.spared.contains(pid); });
    }
    return std::ranges::any_of(found, [uid](pid_t pid) { return Utils::processOwner(pid) == uid; });
}

} // namespace Vard
