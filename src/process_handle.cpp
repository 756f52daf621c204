// A safe handle on one process, and whose process it is.
#include "process_handle.h"

#include "file_descriptor.h"
#include "small_file.h"
#include "user_database.h"

#include <poll.h>
// This C library's header forgets to say that it is C.
extern "C" {
#include <sys/pidfd.h>
}
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <sstream>
#include <string>
#include <string_view>

namespace Vard {

using Clock = std::chrono::steady_clock;

namespace {

// Now and when the process began, in the kernel's clock ticks since the machine's start.
uint64_t ticksNow() {
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    const auto perSecond = static_cast<uint64_t>(::sysconf(_SC_CLK_TCK));
    return static_cast<uint64_t>(now.tv_sec) * perSecond +
           static_cast<uint64_t>(now.tv_nsec) * perSecond / 1'000'000'000;
}

// What the kernel tells of a process behind its name, which may hold anything.
std::istringstream statFields(pid_t pid) {
    const std::string text = Utils::readSmallFile("/proc/" + std::to_string(pid) + "/stat");
    return std::istringstream(text.substr(std::min(text.rfind(')') + 1, text.size())));
}

std::optional<uint64_t> beginOf(pid_t pid) {
    constexpr int fieldsBefore = 19;
    auto fields = statFields(pid);
    std::string skipped;
    for (int i = 0; i < fieldsBefore; ++i) {
        fields >> skipped;
    }
    uint64_t ticks = 0;
    return fields >> ticks ? std::optional(ticks) : std::nullopt;
}

} // namespace

struct ProcessHandle::State {
    pid_t pid = 0;
    FileDescriptor pidfd;
    std::optional<uint64_t> reportedAt; // set where none could be had
    std::atomic<Clock::rep> toldAt{0}; // 0: not told to end yet

    [[nodiscard]] bool signal(int number) const {
        return reportedAt ? signalUnheld(number) : ::pidfd_send_signal(pidfd.get(), number, nullptr, 0) == 0;
    }

    // A process that began after the report only has the number. While that cannot be told, for want of descriptors
    // still, the process counts as there and is sent nothing.
    [[nodiscard]] bool signalUnheld(int number) const {
        const FileDescriptor found(::pidfd_open(pid, 0));
        if (!found) {
            return number == 0 && errno != ESRCH;
        }
        const auto began = beginOf(pid);
        return (began ? *began <= *reportedAt : number == 0) &&
               ::pidfd_send_signal(found.get(), number, nullptr, 0) == 0;
    }
};

ProcessHandle ProcessHandle::of(pid_t pid) {
    ProcessHandle handle;
    FileDescriptor pidfd(pid > 0 ? ::pidfd_open(pid, 0) : -1);
    if (pidfd) {
        handle.state_ = std::make_shared<State>();
        handle.state_->pid = pid;
        handle.state_->pidfd = std::move(pidfd);
    }
    return handle;
}

ProcessHandle ProcessHandle::reported(pid_t pid) {
    ProcessHandle handle = of(pid);
    const int failed = errno;
    if (!handle && pid > 0) {
        handle.state_ = std::make_shared<State>();
        handle.state_->pid = pid;
        if (failed != ESRCH) { // nobody's number
            handle.state_->reportedAt = ticksNow();
        }
    }
    return handle;
}

pid_t ProcessHandle::pid() const { return state_ ? state_->pid : 0; }

bool ProcessHandle::exists() const { return state_ && state_->signal(0); }

bool ProcessHandle::terminate() const {
    if (!state_) {
        return false;
    }
    Clock::rep never = 0;
    state_->toldAt.compare_exchange_strong(never, Clock::now().time_since_epoch().count());
    return state_->signal(SIGTERM);
}

bool ProcessHandle::kill() const { return state_ && state_->signal(SIGKILL); }

void ProcessHandle::killGroup() const {
    if (pid() > 1) {
        ::kill(-pid(), SIGKILL);
    }
    kill();
}

int ProcessHandle::descriptor() const { return state_ ? state_->pidfd.get() : -1; }

bool ProcessHandle::endedBy(const Deadline& deadline) const {
    while (descriptor() >= 0) {
        const int left = deadline.pollTime();
        pollfd entry{descriptor(), POLLIN, 0};
        const int ready = ::poll(&entry, 1, left);
        if (ready > 0 || (ready == 0 && left == 0)) {
            return ready > 0;
        }
    }
    return true;
}

bool ProcessHandle::stopped() const {
    char state = 0;
    statFields(pid()) >> state;
    return state == 'T' || state == 't';
}

std::optional<Clock::duration> ProcessHandle::toldToEndFor() const {
    const Clock::rep told = state_ ? state_->toldAt.load() : 0;
    if (told == 0) {
        return std::nullopt;
    }
    return Clock::now() - Clock::time_point(Clock::duration(told));
}

uid_t Utils::processOwner(pid_t pid) {
    constexpr std::string_view key = "Uid:\t";
    std::istringstream status(readSmallFile("/proc/" + std::to_string(pid) + "/status"));
    for (std::string line; std::getline(status, line);) { // the first holds the name, which the process has chosen
        if (line.starts_with(key)) {
            return static_cast<uid_t>(std::strtoul(line.c_str() + key.size(), nullptr, 10));
        }
    }
    return unknownUid;
}

} // namespace Vard
