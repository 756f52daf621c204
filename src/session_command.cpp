// Running programs inside a session.
#include "session_command.h"

#include "exceptions.h"
#include "file_descriptor.h"
#include "logger.h"
#include "parsec.h"
#include "process.h"
#include "session_supervisor.h"
#include "sockets.h"
#include "utils.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

namespace Vard {

using Clock = std::chrono::steady_clock;

namespace {

constexpr size_t largestAnswer = 64 << 10;
constexpr std::chrono::milliseconds closingLimit{500}; // from a child's answer to its end

// The socket is in a directory of the user's: only what is a socket of his own is told to his programs.
std::list<std::string> busAddress(const Session& session) {
    const auto path = session.runtimedir / "bus";
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0 || !S_ISSOCK(info.st_mode) || info.st_uid != session.uid) {
        return {};
    }
    return {"DBUS_SESSION_BUS_ADDRESS=unix:path=" + path.string()};
}

void writeAnswer(int fd, const std::string& answer) noexcept {
    const size_t size = std::min(answer.size(), largestAnswer);
    for (size_t done = 0; done < size;) {
        const ssize_t count = ::write(fd, answer.data() + done, size - done);
        if (count < 0 && errno != EINTR) {
            return;
        }
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
}

[[noreturn]] void answerAsUser(const Identity& identity, const std::function<std::string()>& function,
                               int fd) noexcept {
    Syslog::syslogChildOpen();
    Utils::resetChildSignals();
    Utils::closeInheritedDescriptors(fd);
    const bool switched = (!identity.integrity || Parsec::applyIntegrity(*identity.integrity, "callUserScope")) &&
                          Utils::switchToUser(identity);
    if (switched) {
        try {
            writeAnswer(fd, function());
        } catch (const std::exception& err) {
            Syslog::error("%s: exception: %s", "callUserScope", err.what());
        } catch (...) {
            Syslog::error("%s: exception: %s", "callUserScope", "unknown");
        }
    }
    ::_exit(switched ? EXIT_SUCCESS : EXIT_FAILURE);
}

// What the child wrote until it closed its end; the user may stop or kill it at any moment. It may be a secret: no copy
// stays behind here, nor where the text had to grow.
std::string readAnswer(int fd, std::chrono::milliseconds limit) {
    std::string answer;
    answer.reserve(largestAnswer);
    const auto end = Clock::now() + limit;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd entry{fd, POLLIN, 0};
        const int ready = left > 0 ? ::poll(&entry, 1, static_cast<int>(left)) : 0;
        if (ready == 0) {
            Utils::wipe(answer);
            return answer;
        }
        if (ready < 0) {
            continue; // a signal; the read would wait without limit
        }
        std::array<char, 4096> block{};
        const ssize_t count = ::read(fd, block.data(), block.size());
        if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) {
            return answer;
        }
        answer.append(block.data(), count > 0 ? static_cast<size_t>(count) : 0);
        ::explicit_bzero(block.data(), block.size());
    }
}

} // namespace

std::list<std::string> sessionEnvironment(const Session& session) {
    auto environment = busAddress(session);
    environment.splice(environment.end(), session.environments());
    return environment;
}

ChildWait runSessionCommand(const Session& session, const std::filesystem::path& program,
                            const std::list<std::string>& args, const std::list<std::string>& environment, bool log) {
    auto variables = sessionEnvironment(session);
    variables.insert(variables.end(), environment.begin(), environment.end());
    const pid_t pid = Utils::runChildProcess(program, args, session.username, variables,
                                             log ? session.commandLog() : std::filesystem::path{});
    return ChildWait(session.tasks(), pid);
}

void waitSessionCommand(const Session& session, ChildWait& tool, const char* name) {
    Syslog::debug("%s: wait pid: %d", name, tool.pid());
    const int status = tool.getWithin(session.toolKilled ? shortToolLimit : toolLimit, name);
    session.toolKilled = tool.killed();
    Utils::syslogWaitStatus(status, name, tool.pid());
}

std::optional<ChildWait> runSessionOpen(const Session* session, const std::filesystem::path& program,
                                        const std::list<std::string>& args) {
    if (session == nullptr) {
        Syslog::error("%s: xvfb session null", "runSessionOpen");
        return std::nullopt;
    }
    // The supervisor would find out too; known now, it fails the start instead of ending a session at once.
    std::error_code failed;
    if (!std::filesystem::exists(program, failed)) {
        Syslog::error("%s: program not found: %s", "runChildProcess", program.c_str());
        return std::nullopt;
    }
    const Identity identity = Identity::of(session->username);
    // A stop signal that comes before the supervisor listens must wait for it, not be lost or kill it.
    const SupervisorSignals blocked;
    const pid_t service = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0) {
        Utils::syslogErrno("runSessionOpen", "fork", errno);
        return std::nullopt;
    }
    if (pid == 0) {
        superviseSession(*session, identity, program, args, service);
    }
    Syslog::info("%s: session id: 0x%08x, username: %s, cmd: `%s', pid: %d", "runSessionOpen", session->sid,
                 session->username.c_str(), program.c_str(), pid);
    return ChildWait(session->tasks(), pid);
}

std::string callUserScope(const Session& session, const std::function<std::string()>& function,
                          std::chrono::milliseconds limit) {
    const Identity identity = Identity::of(session.username);
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        Utils::syslogErrno("callUserScope", "pipe2", errno);
        throw vard_error("callUserScope");
    }
    const FileDescriptor reader(ends[0]);
    FileDescriptor writer(ends[1]);
    const pid_t pid = ::fork();
    if (pid < 0) {
        Utils::syslogErrno("callUserScope", "fork", errno);
        throw vard_error("callUserScope");
    }
    if (pid == 0) {
        answerAsUser(identity, function, writer.get());
    }
    writer.reset();
    ChildWait child(session.tasks(), pid);
    std::string answer = readAnswer(reader.get(), limit);
    const int status = child.getWithin(closingLimit, "callUserScope");
    if (status != 0) {
        Utils::wipe(answer);
    }
    return answer;
}

} // namespace Vard
