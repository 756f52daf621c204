// A look in a process of its own.
#include "look_process.h"

#include "deadline.h"
#include "failure.h"
#include "file_descriptor.h"
#include "json.h"
#include "logger.h"
#include "small_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sstream>
#include <thread>

namespace Vardctl {

namespace {

using Vard::Deadline;
using Vard::FileDescriptor;
using namespace std::chrono_literals;

constexpr auto killLimit = 1s; // beyond it, the kernel holds the process
constexpr auto reapPause = 5ms;

/// The child's half: away from the terminal, without cores, and gone when the command goes.
[[noreturn]] void look(const Check& check, const Subject& subject, int findingsEnd, pid_t parent) noexcept {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::setsid();
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    ::umask(022);
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        ::dup2(null, standard);
    }
    Vard::Syslog::setDebugLevel(Vard::DebugLevel::Silent); // what the rooms would log is found here
    const Findings findings(findingsEnd, check.name);
    try {
        if (::getppid() == parent) {
            check.look(subject, findings);
        }
    } catch (const std::exception& failure) {
        findings.error(std::string("the look failed: ") + failure.what(), "look at this by hand");
    }
    ::_exit(EXIT_SUCCESS);
}

/// All that comes until the end, or until the deadline; false in the latter case.
bool readAll(int fd, std::string& text, const Deadline& deadline) {
    for (;;) {
        pollfd entry{fd, POLLIN, 0};
        const int ready = ::poll(&entry, 1, deadline.pollTime());
        if (ready == 0) {
            return false;
        }
        std::array<char, 4096> block{};
        const ssize_t count = ready > 0 ? ::read(fd, block.data(), block.size()) : -1;
        if (count == 0) {
            return true;
        }
        if (count < 0 && errno != EINTR) {
            return false;
        }
        text.append(block.data(), count > 0 ? static_cast<size_t>(count) : 0);
    }
}

/// The wait status of a child that has been killed; none when not even that ends it.
std::optional<int> reap(pid_t pid) {
    const auto deadline = Deadline::in(killLimit);
    int status = 0;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
        if (deadline.passed()) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(reapPause);
    }
    return status;
}

// What left the look's process group is a child of this process now; its own children are so when it has ended.
void endAdopted() {
    const auto readChildren = [] { return Vard::Utils::readSmallFile("/proc/thread-self/children"); };
    const auto deadline = Deadline::in(killLimit);
    for (auto list = readChildren(); !list.empty() && !deadline.passed(); list = readChildren()) {
        std::istringstream children(list);
        for (pid_t pid = 0; children >> pid;) {
            ::kill(pid, SIGKILL);
            reap(pid);
        }
    }
}

/// How a look failed to come to its end; empty when it did.
std::string failureOf(bool whole, std::optional<int> status) {
    if (!status) {
        return "the look hangs in the kernel, and its process with it";
    }
    if (!whole) {
        return "the look did not end within " + std::to_string(lookLimit.count()) + " seconds";
    }
    return WIFSIGNALED(*status) ? std::string("the look was ended by: ") + ::strsignal(WTERMSIG(*status)) : "";
}

// A line that was cut when the look was ended is none.
std::vector<Json::Value> parseLines(const std::string& text) {
    std::vector<Json::Value> findings;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
        findings.push_back(parseJson(line));
    }
    return findings;
}

void addFailure(std::vector<Json::Value>& findings, const char* check, const std::string& failure) {
    Json::Value finding;
    finding["status"] = "error";
    finding["check"] = check;
    finding["found"] = failure;
    finding["remedy"] = "what was looked at hangs or is broken: look at it by hand, and at the lines before";
    findings.push_back(finding);
}

} // namespace

void goOnAlone() {
    ::signal(SIGCHLD, SIG_DFL); // ignored, as by some starters, no child's end is told
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0) {
        throw Failure(ExitCode::failed, std::string("no process: ") + std::strerror(errno));
    }
    if (pid == 0) {
        ::prctl(PR_SET_CHILD_SUBREAPER, 1);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() == parent) {
            return;
        }
        ::_exit(EXIT_FAILURE);
    }
    int status = W_EXITCODE(EXIT_FAILURE, 0);
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) {
        throw Failure(ExitCode::failed, std::string("check: ended by: ") + ::strsignal(WTERMSIG(status)));
    }
    ::_exit(WEXITSTATUS(status));
}

std::vector<Json::Value> carryOut(const Check& check, const Subject& subject) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw Failure(ExitCode::failed, std::string("no pipe: ") + std::strerror(errno));
    }
    const FileDescriptor findingsEnd(ends[0]);
    FileDescriptor lookEnd(ends[1]);
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0) {
        throw Failure(ExitCode::failed, std::string("no process: ") + std::strerror(errno));
    }
    if (pid == 0) {
        look(check, subject, lookEnd.get(), parent);
    }
    lookEnd.reset();
    std::string text;
    const bool whole = readAll(findingsEnd.get(), text, Deadline::in(lookLimit));
    ::kill(-pid, SIGKILL); // its group, as long as its number is not reaped; by itself it has ended
    if (!whole) {
        ::kill(pid, SIGKILL); // it may have no group yet
    }
    const auto status = reap(pid);
    endAdopted();
    auto findings = parseLines(text);
    if (const auto failure = failureOf(whole, status); !failure.empty()) {
        addFailure(findings, check.name, failure);
    }
    return findings;
}

} // namespace Vardctl
