// Processes: handles, identities, and the parent's half of running a program under a user's identity.
#include "process.h"

#include "exceptions.h"
#include "file_descriptor.h"
#include "logger.h"
#include "own_children.h"
#include "parsec.h"
#include "user_database.h"

#include <fcntl.h>
#include <poll.h>
// This C library's header forgets to say that it is C.
extern "C" {
#include <sys/pidfd.h>
}
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <sstream>
#include <string_view>

namespace fs = std::filesystem;

namespace Vard {

char** programArgv = nullptr;

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

Identity Identity::of(const std::string& user) {
    const UserInfo info = Utils::getUserInfo(user);
    if (!info.known()) {
        Syslog::error("%s: user not found: `%s'", "Identity", user.c_str());
        throw vard_error("Identity");
    }
    Identity identity{info.user, info.home, info.shell, info.uid, info.gid, {}, {}};
    if (Parsec::available()) {
        // Without a level of his own the user gets the lowest, never the service's.
        identity.integrity = Parsec::userIntegrity(info.uid).value_or(0);
    }
    if (user != "root") {
        identity.groups = Utils::getUserGroups(user, info.gid);
    }
    return identity;
}

std::list<std::string> Identity::environment() const {
    return {"USER=" + user,   "LOGNAME=" + user, "HOME=" + home,
            "SHELL=" + shell, "TERM=linux",      "PATH=/usr/local/bin:/usr/bin:/bin:/usr/local/games:/usr/games"};
}

std::vector<char*> createARGV(const std::string& program, const std::list<std::string>& args) {
    std::vector<char*> argv{const_cast<char*>(program.c_str())}; // NOLINT: exec's type, it changes nothing
    for (const auto& arg : args) {
        argv.push_back(const_cast<char*>(arg.c_str())); // NOLINT
    }
    argv.push_back(nullptr);
    return argv;
}

std::vector<char*> createENVP(const std::list<std::string>& environment) {
    std::vector<char*> envp;
    for (const auto& entry : environment) {
        envp.push_back(const_cast<char*>(entry.c_str())); // NOLINT
    }
    envp.push_back(nullptr);
    return envp;
}

namespace {

// The variables in their order, of each name only the last: programs differ in which of two they take.
std::list<std::string> lastOfEach(std::list<std::string> environment) {
    std::map<std::string, const std::string*> last;
    const auto name = [](const std::string& entry) { return entry.substr(0, entry.find('=')); };
    for (const auto& entry : environment) {
        last[name(entry)] = &entry;
    }
    environment.remove_if([&](const std::string& entry) { return last[name(entry)] != &entry; });
    return environment;
}

// What comes between fork and exec must not be disturbed by a signal that is meant for the service.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t all{};
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t before_{};
};

} // namespace

void changeProcessName(const char* name) {
    ::prctl(PR_SET_NAME, name);
    if (programArgv == nullptr || programArgv[0] == nullptr) {
        return;
    }
    const size_t room = std::strlen(programArgv[0]);
    const size_t used = std::min(room, std::strlen(name));
    std::memcpy(programArgv[0], name, used);
    std::memset(programArgv[0] + used, ' ', room - used);
    for (char** arg = programArgv + 1; *arg != nullptr; ++arg) {
        std::memset(*arg, 0, std::strlen(*arg));
    }
}

void movingProcessToVardCgroup() {
    const fs::path cgroup = "/sys/fs/cgroup/cpu";
    std::error_code failed;
    if (!fs::is_directory(cgroup, failed)) {
        Syslog::error("%s: cgroup not found: %s", "movingProcessToVardCgroup", cgroup.c_str());
        return;
    }
    const fs::path slice = cgroup / "vard.slice";
    if (::mkdir(slice.c_str(), 0755) != 0 && errno != EEXIST) {
        Utils::syslogErrno("movingProcessToVardCgroup", "mkdir", errno);
        return;
    }
    const FileDescriptor procs(::open((slice / "cgroup.procs").c_str(), O_WRONLY | O_CLOEXEC));
    const std::string pid = std::to_string(::getpid());
    if (!procs || ::write(procs.get(), pid.data(), pid.size()) < 0) {
        Utils::syslogErrno("movingProcessToVardCgroup", "cgroup.procs", errno);
    }
}

namespace Utils {

uid_t processOwner(pid_t pid) {
    constexpr std::string_view key = "Uid:\t";
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) { // the first holds the name, which the process has chosen
        if (line.starts_with(key)) {
            return static_cast<uid_t>(std::strtoul(line.c_str() + key.size(), nullptr, 10));
        }
    }
    return unknownUid;
}

namespace {

void requireProgram(const fs::path& program) {
    std::error_code failed;
    if (!fs::exists(program, failed)) {
        Syslog::error("%s: program not found: %s", "runChildProcess", program.c_str());
        throw vard_error("runChildProcess");
    }
}

} // namespace

pid_t runChildProcess(const fs::path& program, const std::list<std::string>& args, const std::string& user,
                      const std::list<std::string>& environment, const ChildOptions& options) {
    requireProgram(program);
    return runChildProcess(program, args, Identity::of(user), environment, options);
}

pid_t runChildProcess(const fs::path& program, const std::list<std::string>& args, const Identity& identity,
                      const std::list<std::string>& environment, const ChildOptions& options) {
    requireProgram(program);
    auto variables = identity.environment();
    variables.insert(variables.end(), environment.begin(), environment.end());
    variables = lastOfEach(std::move(variables));
    const auto argv = createARGV(program.native(), args);
    const auto envp = createENVP(variables);
    rememberJournalSocket();
    const BlockedSignals blocked;
    const pid_t pid = OwnChildren::fork();
    if (pid < 0) {
        syslogErrno("runChildProcess", "fork", errno);
        throw vard_error("runChildProcess");
    }
    if (pid == 0) {
        runOwnerCommand(program.c_str(), argv, envp, identity, options);
    }
    return pid;
}

} // namespace Utils
} // namespace Vard
