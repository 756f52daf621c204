// One process of the transport program.
#include "transport.h"

#include <systemd/sd-journal.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
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

[[noreturn]] void runChild(pid_t parent, int output, char* const* arguments, char* const* environment) {
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (::getppid() == parent && ::dup2(nothing, STDIN_FILENO) >= 0 && ::dup2(output, STDOUT_FILENO) >= 0 &&
        ::dup2(output, STDERR_FILENO) >= 0) {
        ::execve(arguments[0], arguments, environment);
    }
    ::_exit(127);
}

} // namespace

// The program writes its log into a pipe in blocks of 4096 bytes, which is too late: stdbuf has it write lines. stdbuf
// becomes the program, so the process is the same.
std::vector<std::string> transportArguments(const TransportSettings& settings) {
    std::vector<std::string> arguments{"/usr/bin/stdbuf", "-oL", settings.program,
                                       "/port:" + std::to_string(settings.port)};
    if (!settings.bind.empty()) {
        const bool six = settings.bind.find(':') != std::string::npos;
        arguments.push_back("/bind-address:" + (six ? "[" + settings.bind + "]" : settings.bind));
    }
    // Network-level authentication alone: the two older ways let a client see the screen before it is authenticated.
    arguments.emplace_back("/sec:nla");
    arguments.push_back("/sam-file:" + settings.samFile);
    return arguments;
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

Transport::Transport(sd_event* loop, const TransportSettings& settings, Handler& handler)
    : loop_(loop), handler_(handler) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        fail("pipe2");
    }
    output_.reset(ends[0]);
    const Vard::FileDescriptor childEnd(ends[1]);
    ::fcntl(output_.get(), F_SETFL, O_NONBLOCK);
    outputSource_ = EventSource::readable(loop, output_.get(), [this] { readOutput(); });
    start(settings, childEnd.get());
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
    endSource_ = EventSource::childEnd(loop_, child_.pid, [this] { ended(); });
}

Transport::Child::~Child() {
    if (pid > 0) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
}

void Transport::end() {
    if (child_.pid > 0 && !killTimer_) {
        ::kill(child_.pid, SIGTERM);
        killTimer_ = EventSource::after(loop_, endLimit, [this] { ::kill(child_.pid, SIGKILL); });
    }
}

bool Transport::hasThread(pid_t thread) const {
    std::error_code ignored;
    return std::filesystem::exists(
        std::filesystem::path("/proc") / std::to_string(child_.pid) / "task" / std::to_string(thread), ignored);
}

void Transport::readOutput() {
    std::array<char, 4096> block{};
    const ssize_t count = ::read(output_.get(), block.data(), block.size());
    if (count > 0) {
        unread_.append(block.data(), static_cast<size_t>(count));
        takeLines();
    } else if (count == 0 || errno != EAGAIN) {
        outputSource_.reset();
    }
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
        handler_.transportSaid(parseLogLine(line), line);
    }
}

// Reaped here and not by the loop after this call: the service takes an unreaped process for a running one.
void Transport::ended() {
    try {
        readOutput(); // why it ended
    } catch (const std::exception& err) {
        sd_journal_print(LOG_ERR, "transport %d: %s", static_cast<int>(child_.pid), err.what());
    }
    ::waitpid(child_.pid, nullptr, WNOHANG);
    child_.pid = 0;
    killTimer_.reset();
    handler_.transportEnded();
}

} // namespace Doors
