// Programs that a look runs.
#include "program_run.h"

#include "small_file.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <stdexcept>

namespace Vardctl {

namespace {

using Vard::Deadline;
using Vard::FileDescriptor;
using namespace std::chrono_literals;

constexpr size_t mostOutput = 256 << 10;
constexpr auto pause = 10ms; // between two looks whether it has ended
constexpr int cannotRun = 126;
constexpr int notFound = 127;

// A file without a name, so that no writer is needed beside the program.
FileDescriptor inputWith(const std::string& text) {
    FileDescriptor input(::memfd_create("input", MFD_CLOEXEC));
    if (!input || !Vard::Utils::writeAll(input.get(), text) || ::lseek(input.get(), 0, SEEK_SET) != 0) {
        throw std::runtime_error("no input for a program");
    }
    return input;
}

bool become(uid_t user) noexcept {
    return user == 0 || (::setgroups(0, nullptr) == 0 && ::setgid(user) == 0 && ::setuid(user) == 0);
}

// What a stranger's program starts ends with it, in a process namespace, even when the command is killed. Without one,
// what left the look's process group can stay then. Root's has none: the service manager does not talk to who is in
// one.
pid_t forkFor(uid_t user) {
    const auto apart = [] { return ::syscall(SYS_clone, CLONE_NEWPID | SIGCHLD, nullptr, nullptr, nullptr, nullptr); };
    const auto pid = user == 0 ? pid_t{-1} : static_cast<pid_t>(apart());
    return pid < 0 ? ::fork() : pid;
}

/// The child's half. What the command's starter has left open is not the program's.
[[noreturn]] void execute(char* const* argv, uid_t user, int input, int output) noexcept {
    std::array<char*, 4> environment{};
    char path[] = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"; // NOLINT(*-c-arrays)
    char locale[] = "LC_ALL=C.UTF-8"; // NOLINT(*-c-arrays)
    char home[] = "HOME=/"; // NOLINT(*-c-arrays)
    environment = {path, locale, home, nullptr};
    ::dup2(input, STDIN_FILENO);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    ::close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC);
    if (::chdir("/") != 0 || !become(user)) {
        ::_exit(cannotRun);
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL); // the change of ids would have undone it
    ::execvpe(argv[0], argv, environment.data());
    ::_exit(errno == ENOENT ? notFound : cannotRun);
}

} // namespace

uid_t strangerId() {
    constexpr uid_t last = 65533; // below the one of nobody, under which others may run
    uid_t id = last;
    while (::getpwuid(id) != nullptr) {
        --id;
    }
    return id;
}

RunningProgram::RunningProgram(const std::vector<std::string>& command, uid_t user, const std::string& input) {
    std::vector<char*> argv;
    argv.reserve(command.size() + 1);
    for (const auto& word : command) {
        argv.push_back(const_cast<char*>(word.c_str())); // NOLINT(*-const-cast): the kernel copies them
    }
    argv.push_back(nullptr);
    const FileDescriptor inputEnd = inputWith(input);
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe for a program");
    }
    outputEnd_.reset(ends[0]);
    const FileDescriptor writingEnd(ends[1]);
    ::fcntl(outputEnd_.get(), F_SETFL, O_NONBLOCK);
    pid_ = forkFor(user);
    if (pid_ == 0) {
        execute(argv.data(), user, inputEnd.get(), writingEnd.get());
    }
    if (pid_ < 0) {
        throw std::runtime_error("no process for a program");
    }
}

RunningProgram::~RunningProgram() {
    if (!status_) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

void RunningProgram::collect() {
    std::array<char, 4096> block{};
    for (ssize_t count = 0; (count = ::read(outputEnd_.get(), block.data(), block.size())) > 0;) {
        output_.append(block.data(), std::min(static_cast<size_t>(count), mostOutput - output_.size()));
    }
}

bool RunningProgram::endedBy(const Deadline& deadline) {
    for (;;) {
        int status = W_EXITCODE(cannotRun, 0); // as it stays when somebody else has reaped it
        if (!status_ && ::waitpid(pid_, &status, WNOHANG) != 0) {
            status_ = status;
        }
        collect();
        if (status_ || deadline.passed()) {
            return status_.has_value();
        }
        ::poll(nullptr, 0, static_cast<int>(std::chrono::milliseconds(pause).count()));
    }
}

std::string RunningProgram::end() const {
    if (!status_) {
        return "it did not end in time";
    }
    return WIFSIGNALED(*status_) ? std::string("ended by: ") + ::strsignal(WTERMSIG(*status_))
                                 : "exit status " + std::to_string(WEXITSTATUS(*status_));
}

bool RunningProgram::failedToRun() const {
    return !status_ || WIFSIGNALED(*status_) || WEXITSTATUS(*status_) >= cannotRun;
}

std::optional<std::string> outputOf(const std::vector<std::string>& command, uid_t user, const std::string& input) {
    RunningProgram program(command, user, input);
    return program.endedBy(Deadline::in(5s)) && program.succeeded() ? std::optional(program.output()) : std::nullopt;
}

} // namespace Vardctl
