// One process of the transport program.
#include "transport.h"

#include "file_descriptor.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <system_error>

namespace Doors {

using namespace std::chrono_literals;

namespace {

constexpr auto endLimit = 5s;
constexpr size_t longestUnread = 4096; // a line that never ends is dropped

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (auto& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

// A flood of clients that show no password, or a hostile screen, must not take the machine's memory.
constexpr rlim_t mostMemory = rlim_t{1} << 30;
constexpr rlim_t mostDescriptors = 1024;

void limit(__rlimit_resource what, rlim_t most) {
    const rlimit both{most, most};
    ::setrlimit(what, &both);
}

// After a fork of a program with one thread: whatever it may call there, it may call here.
[[noreturn]] void runChild(pid_t parent, int output, char* const* arguments, char* const* environment) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::umask(077);
    limit(RLIMIT_DATA, mostMemory);
    limit(RLIMIT_NOFILE, mostDescriptors);
    limit(RLIMIT_CORE, 0); // its memory holds hash lines
    if (const int order = ::open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC); order >= 0) {
        (void)!::write(order, "1000", 4);
    }
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (::getppid() == parent && ::dup2(nothing, STDIN_FILENO) >= 0 && ::dup2(output, STDOUT_FILENO) >= 0 &&
        ::dup2(output, STDERR_FILENO) >= 0 && ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0) {
        ::execve(arguments[0], arguments, environment);
    }
    ::_exit(127);
}

} // namespace

// The program writes its log into a pipe in blocks of 4096 bytes, which is too late: stdbuf has it write lines. stdbuf
// becomes the program, so the process is the same.
std::vector<std::string> transportArguments(const TransportSettings& settings) {
    // Network-level authentication alone: the two older ways let a client see the screen before it is authenticated.
    return {"/usr/bin/stdbuf", "-oL",
            settings.program,  "/ipc-socket:" + settings.socket,
            "/sec:nla",        "/sam-file:" + settings.samFile};
}

std::vector<std::string> transportEnvironment(const TransportSettings& settings) {
    return {
        "PATH=/usr/bin:/bin",
        "HOME=" + settings.stateDir,
        "XDG_CONFIG_HOME=" + settings.stateDir, // the certificate
        "DISPLAY=:" + std::to_string(settings.display),
        "XAUTHORITY=" + settings.xauthfile,
        "WLOG_LEVEL=ERROR",
        "WLOG_FILTER=com.freerdp.core.listener:INFO,com.freerdp.core.connection:INFO,com.freerdp.client.shadow:INFO",
        "WLOG_PREFIX=<%lv> %tid %mn "};
}

Transport::Transport(asio::io_context& loop, const TransportSettings& settings, Handler& handler)
    : handler_(handler), output_(loop), process_(loop), killTimer_(loop) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        fail("pipe2");
    }
    output_.assign(ends[0]);
    const Vard::FileDescriptor childEnd(ends[1]);
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    start(settings, childEnd.get());
    waitForOutput();
    process_.async_wait(Descriptor::wait_read, [this, alive = std::weak_ptr(alive_)](Failed failed) {
        if (!failed && !alive.expired()) {
            ended();
        }
    });
}

void Transport::start(const TransportSettings& settings, int output) {
    auto arguments = transportArguments(settings);
    auto environment = transportEnvironment(settings);
    const auto argv = pointers(arguments);
    const auto envp = pointers(environment);
    const pid_t parent = ::getpid();
    child_.pid = ::fork();
    if (child_.pid == 0) {
        runChild(parent, output, argv.data(), envp.data());
    }
    if (child_.pid < 0) {
        child_.pid = 0;
        fail("fork");
    }
    const auto handle = static_cast<int>(::syscall(SYS_pidfd_open, child_.pid, 0));
    if (handle < 0) {
        fail("pidfd_open");
    }
    process_.assign(handle);
}

Transport::Child::~Child() {
    if (pid > 0) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
}

size_t Transport::memory() const {
    std::ifstream statm("/proc/" + std::to_string(child_.pid) + "/statm");
    size_t whole = 0;
    size_t resident = 0;
    statm >> whole >> resident;
    return resident * static_cast<size_t>(::sysconf(_SC_PAGESIZE));
}

void Transport::end() {
    if (child_.pid > 0 && !std::exchange(told_, true)) {
        ::kill(child_.pid, SIGTERM);
        killTimer_.start(endLimit, [this] { ::kill(child_.pid, SIGKILL); });
    }
}

void Transport::waitForOutput() {
    output_.async_wait(Descriptor::wait_read, [this, alive = std::weak_ptr(alive_)](Failed failed) {
        if (!failed && !alive.expired() && readOutput() && !alive.expired()) {
            waitForOutput();
        }
    });
}

bool Transport::readOutput() {
    std::array<char, 4096> block{};
    const ssize_t count = ::read(output_.native_handle(), block.data(), block.size());
    if (count > 0) {
        unread_.append(block.data(), static_cast<size_t>(count));
        takeLines();
    }
    return count > 0 || (count < 0 && errno == EAGAIN);
}

void Transport::takeLines() {
    std::vector<std::string> lines;
    for (size_t end = 0; (end = unread_.find('\n')) != std::string::npos; unread_.erase(0, end + 1)) {
        lines.push_back(unread_.substr(0, end));
    }
    if (unread_.size() > longestUnread) {
        unread_.clear();
    }
    for (const auto& line : lines) {
        try {
            handler_.transportSaid(parseLogLine(line), line);
        } catch (const std::exception& err) { // the lines after it count all the same
            sd_journal_print(LOG_ERR, "transport: exception: %s", err.what());
        }
    }
}

// Reaped before anything else hears of it: the service takes an unreaped process for a running one.
void Transport::ended() {
    ::waitpid(child_.pid, nullptr, WNOHANG);
    child_.pid = 0;
    killTimer_.cancel();
    readOutput(); // why it ended
    handler_.transportEnded();
}

} // namespace Doors
