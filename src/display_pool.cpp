// Which of the displays can be had for a new session, and the right to one.
#include "display_pool.h"

#include "deadline.h"
#include "logger.h"
#include "own_children.h"
#include "timed_child.h"
#include "x_server.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

namespace Vard {

using namespace std::chrono_literals;

namespace {

constexpr auto restTime = 60s;
constexpr auto endingWait = 1s; // in one start, for all displays together
constexpr size_t mostNames = 256; // held from the start; those beyond are held when their display is first claimed
constexpr const char* func = "startSession";

// Tried in a child: the service itself stays where it is.
bool tryNamespace() {
    const pid_t pid = OwnChildren::fork();
    if (pid == 0) {
        const bool works = ::unshare(CLONE_NEWNET | CLONE_NEWNS) == 0 &&
                           ::mount("none", "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0;
        ::_exit(works ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    if (pid < 0 || TimedChild(pid).wait(5s, "DisplayPool") != 0) {
        Syslog::warning("%s: no namespaces here, X servers can be reached by their abstract names", "DisplayPool");
        return false;
    }
    return true;
}

} // namespace

DisplayPool::DisplayPool() { names_.restore(); }

bool DisplayPool::canIsolate() {
    static const bool works = tryNamespace();
    return works;
}

void DisplayPool::configure(const DisplayRange& range, bool isolate) {
    const std::scoped_lock lock(mutex_);
    isolated_ = isolate;
    if (!isolate) { // servers take them themselves
        names_.letGoAll();
    }
    const auto first = static_cast<uint32_t>(range.first);
    // Names of displays that left the range stay held: sessions may still run there.
    for (size_t i = 0; isolated_ && i < std::min(range.count, mostNames); ++i) {
        names_.hold(first + static_cast<uint32_t>(i));
    }
}

bool DisplayPool::isolated() const {
    const std::scoped_lock lock(mutex_);
    return isolated_;
}

// First a pass that waits for nothing; only when every display is taken, the wait for those whose sessions are ending.
DisplayRight DisplayPool::take(const std::vector<uint32_t>& displays, const SocketOf& socketOf) {
    std::vector<uint32_t> ending;
    for (const uint32_t display : displays) {
        auto [right, stillEnding] = attempt(display, socketOf, false);
        if (right) {
            return right;
        }
        if (stillEnding) {
            Syslog::info("%s: display passed over: %u, an earlier session is still ending", func, display);
            ending.push_back(display);
        }
    }
    auto right = waitForOne(std::move(ending), socketOf);
    return right ? right : resting(displays, socketOf);
}

DisplayPool::Attempt DisplayPool::attempt(uint32_t display, const SocketOf& socketOf, bool evenResting) {
    const bool gone = serverGone(display);
    auto right = rightTo(display);
    const bool ending = !right;
    if (ending || !gone || !claim(display, socketOf(display), evenResting)) {
        return {{}, ending};
    }
    return {std::move(right), false};
}

// The record of a session that has just ended is gone in a moment, and so is its server. Those that stay must not hold
// the logins of others for longer.
DisplayRight DisplayPool::waitForOne(std::vector<uint32_t> ending, const SocketOf& socketOf) {
    const auto end = Deadline::in(endingWait);
    DisplayRight found;
    while (!found && !ending.empty() && !end.passed()) {
        std::this_thread::sleep_for(5ms);
        std::erase_if(ending, [&](uint32_t display) {
            auto [right, stillEnding] = found ? Attempt{{}, true} : attempt(display, socketOf, false);
            found = right ? std::move(right) : found;
            return !stillEnding; // gone, but there may be something else in the way
        });
    }
    return found;
}

// A display where a start was disturbed is better than none: whoever disturbed it may be gone.
DisplayRight DisplayPool::resting(const std::vector<uint32_t>& displays, const SocketOf& socketOf) {
    for (const uint32_t display : displays) {
        if (auto right = rests(display) ? attempt(display, socketOf, true).right : DisplayRight{}) {
            return right;
        }
    }
    return {};
}

DisplayRight DisplayPool::rightTo(uint32_t display) {
    const std::scoped_lock lock(mutex_);
    std::erase_if(rights_, [](const auto& right) { return right.expired(); });
    const bool taken = std::ranges::any_of(rights_, [&](const auto& right) {
        const auto held = right.lock();
        return held && *held == display;
    });
    if (taken) {
        return {};
    }
    auto number = std::make_shared<const uint32_t>(display);
    rights_.emplace_back(number);
    return DisplayRight(std::move(number));
}

bool DisplayPool::claim(uint32_t display, const std::filesystem::path& socket, bool evenResting) {
    if (!evenResting && rests(display)) {
        Syslog::warning("%s: display passed over: %u, a start was disturbed there", func, display);
        return false;
    }
    const std::scoped_lock lock(mutex_);
    resting_.erase(display);
    if (!claimName(display)) {
        return false;
    }
    const std::string obstacle = clearDisplay(display, socket);
    if (!obstacle.empty()) {
        Syslog::warning("%s: display passed over: %u, %s", func, display, obstacle.c_str());
    }
    return obstacle.empty();
}

void DisplayPool::forgetEnded() {
    const std::scoped_lock lock(mutex_);
    std::erase_if(lateServers_, [](const auto& late) { return late.second.endedBy({}); });
}

bool DisplayPool::serverGone(uint32_t display) {
    forgetEnded();
    const std::scoped_lock lock(mutex_);
    const auto found = lateServers_.find(display);
    if (found == lateServers_.end()) {
        return true;
    }
    if (!found->second.toldToEndFor()) {
        Syslog::warning("%s: display passed over: %u, a late server still runs, pid: %d", func, display,
                        found->second.pid());
        found->second.terminate(); // stopped ones must not keep all displays; the watcher kills what does not obey
    }
    return false;
}

// Where X servers have no namespace of their own, they take the name themselves.
bool DisplayPool::claimName(uint32_t display) {
    if (isolated_ ? names_.hold(display) : DisplayNames::isFree(display)) {
        return true;
    }
    if (Clock::now() >= nameOwnersUntil_) { // users can make the kernel's list long
        nameOwners_ = displayNameOwners();
        nameOwnersUntil_ = Clock::now() + restTime;
    }
    const auto owner = nameOwners_.find(display);
    Syslog::warning("%s: display passed over: %u, its abstract name is somebody else's, uid: %d", func, display,
                    owner != nameOwners_.end() ? static_cast<int>(owner->second) : -1);
    return false;
}

void DisplayPool::late(uint32_t display, const ProcessHandle& server) {
    const std::scoped_lock lock(mutex_);
    lateServers_[display] = server;
}

void DisplayPool::rest(uint32_t display) {
    const std::scoped_lock lock(mutex_);
    resting_[display] = Clock::now() + restTime;
}

bool DisplayPool::rests(uint32_t display) const {
    const std::scoped_lock lock(mutex_);
    const auto found = resting_.find(display);
    return found != resting_.end() && Clock::now() < found->second;
}

} // namespace Vard
