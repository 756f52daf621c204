// The children that this process started, told from those that it adopted: what its children left behind.
#include "own_children.h"

#include "logger.h"
#include "process.h"

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
#include <optional>
#include <set>
#include <string>
#include <thread>

namespace Vard {

using namespace std::chrono_literals;

namespace {

constexpr int mostRounds = 100; // of killing in one look
constexpr auto killTime = 1s; // in which a killed child ends, unless the kernel holds it

using Clock = std::chrono::steady_clock;

std::mutex lock;
std::set<pid_t> own;
std::set<pid_t> spared; // left running by somebody else's code
std::map<pid_t, Clock::time_point> released; // until when each may run
int foreign = 0; // threads in such code
int forking = 0; // threads in a fork of ours, whose child is not known yet

// The kernel gives what it reparents to the first thread.
std::vector<pid_t> childrenOfFirstThread() {
    std::ifstream list("/proc/self/task/" + std::to_string(::getpid()) + "/children");
    return {std::istream_iterator<pid_t>(list), {}};
}

std::vector<pid_t> strangers() {
    auto children = childrenOfFirstThread();
    std::erase_if(children, [](pid_t pid) { return own.contains(pid); });
    return children;
}

bool reapAdopted(pid_t pid) { return ::waitpid(pid, nullptr, WNOHANG) == pid; }

// What was adopted, without what foreign code left on purpose; none can be told while such code runs, or a fork. Reaps
// both. Needs the lock: nobody else may reap what is signalled by its number.
std::optional<std::vector<pid_t>> adopted(const std::scoped_lock<std::mutex>& /*held*/) {
    if (foreign > 0 || forking > 0) {
        return std::nullopt;
    }
    auto found = strangers();
    std::erase_if(found, reapAdopted);
    const auto gone = [&](pid_t pid) { return std::ranges::find(found, pid) == found.end(); };
    std::erase_if(spared, gone);
    std::erase_if(released, [&](const auto& child) { return gone(child.first); });
    std::erase_if(found, [](pid_t pid) { return spared.contains(pid); });
    return found;
}

} // namespace

// A fork may wait for other threads' look-ups: nobody waits for the lock meanwhile.
pid_t OwnChildren::fork() {
    {
        const std::scoped_lock guard(lock);
        ++forking;
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
        new (&lock) std::mutex; // whoever held it is not here
        own.clear();
        forking = 0;
        return 0;
    }
    const std::scoped_lock guard(lock);
    --forking;
    if (pid > 0) {
        own.insert(pid);
    }
    return pid;
}

// Never a wait without end: the tracer of a child that has ended, who may be its own user, has its status first.
std::optional<int> OwnChildren::reap(pid_t pid) {
    const auto giveUp = Clock::now() + killTime;
    int status = -1;
    pid_t ended = 0;
    while ((ended = ::waitpid(pid, &status, WNOHANG)) == 0 && Clock::now() < giveUp) {
        std::this_thread::sleep_for(1ms);
    }
    if (ended == 0) {
        Syslog::warning("%s: ended child is held by its tracer, pid: %d", "OwnChildren", pid);
        release(pid, 0s);
        return std::nullopt;
    }
    if (ended < 0) {
        Utils::syslogErrno("waitProcessPid", "waitpid", errno);
    }
    const std::scoped_lock guard(lock);
    own.erase(pid);
    return ended < 0 ? std::nullopt : std::optional(status);
}

void OwnChildren::release(pid_t pid, Clock::duration limit) {
    const std::scoped_lock guard(lock);
    own.erase(pid);
    released[pid] = Clock::now() + limit;
}

ForeignForks::ForeignForks() {
    const std::scoped_lock guard(lock);
    ++foreign;
    before_ = strangers();
}

ForeignForks::~ForeignForks() {
    const std::scoped_lock guard(lock);
    --foreign;
    for (const pid_t pid : strangers()) {
        // Only root's, and no child of ours: what a user's session left behind at this moment must not slip through.
        if (forking == 0 && std::ranges::find(before_, pid) == before_.end() && Utils::processOwner(pid) == 0) {
            spared.insert(pid);
        }
    }
}

void AdoptedChildren::adopt() { ::prctl(PR_SET_CHILD_SUBREAPER, 1); }

size_t AdoptedChildren::endOnce(const char* func) { return end(func, Clock::duration::max()); }

// A released child has at most `mostLeft`.
size_t AdoptedChildren::end(const char* func, Clock::duration mostLeft) {
    // What is killed may have forked before, and its child is here at once.
    Look look = endSeen(func, mostLeft);
    for (int round = 1; round < mostRounds && look.killed > 0; ++round) {
        std::this_thread::sleep_for(200us);
        look = endSeen(func, mostLeft);
    }
    return look.left;
}

// All are ours and not reaped, so the numbers are their own. Patience is with the user: one whose processes hand over
// to their children, each new here, would never use it up.
AdoptedChildren::Look AdoptedChildren::endSeen(const char* func, Clock::duration mostLeft) {
    const std::scoped_lock guard(lock);
    const auto found = adopted(guard);
    if (!found) {
        return {told_.size(), 0};
    }
    const auto now = Clock::now();
    std::erase_if(told_, [&](const auto& told) { return now - told.second.last > patience + killTime; });
    Look look;
    for (const pid_t pid : *found) {
        if (const auto child = released.find(pid); child != released.end() && child->second > now) {
            child->second = child->second - now > mostLeft ? now + mostLeft : child->second;
            ++look.left;
            continue;
        }
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
        look.left += again && now - entry->second.first > patience + killTime ? 0 : 1;
    }
    return look;
}

void AdoptedChildren::endAll(const char* func) {
    const auto giveUp = Clock::now() + lastPatience + patience + killTime;
    while (end(func, lastPatience) > 0 && Clock::now() < giveUp) {
        std::this_thread::sleep_for(20ms);
    }
}

bool AdoptedChildren::any(uid_t uid) {
    const std::scoped_lock guard(lock);
    const auto found = adopted(guard).value_or(std::vector<pid_t>{});
    return std::ranges::any_of(found, [uid](pid_t pid) { return Utils::processOwner(pid) == uid; });
}

} // namespace Vard
