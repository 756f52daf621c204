// Looks into users' files, under the users' own identity.
#include "look_as_user.h"

#include "child_descriptors.h"
#include "deadline.h"
#include "exceptions.h"
#include "file_descriptor.h"
#include "logger.h"
#include "own_children.h"
#include "parsec.h"
#include "process_child.h"
#include "secret.h"
#include "small_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace Vard {

using namespace std::chrono_literals;

namespace {

constexpr size_t largestAnswer = 64 << 10;
constexpr auto closingLimit = 500ms; // from a child's answer to its end

[[noreturn]] void answerAsUser(const Identity& identity, const std::function<std::string()>& function,
                               int fd) noexcept {
    Syslog::syslogChildOpen();
    ::setsid(); // a process group of its own, as whoever kills it expects
    Utils::resetChildSignals();
    Utils::closeInheritedDescriptors(fd);
    Secret::wipeAll(); // a file system of the user's may hold this copy of the service for ever
    const bool switched = (!identity.integrity || Parsec::applyIntegrity(*identity.integrity, "callUserScope")) &&
                          Utils::switchToUser(identity);
    ::prctl(PR_SET_DUMPABLE, 0); // a copy of the service: no core of it is the user's
    bool answered = false;
    if (switched) {
        try {
            const std::string answer = function();
            answered = Utils::writeAll(fd, std::string_view(answer).substr(0, largestAnswer));
        } catch (const std::exception& err) {
            Syslog::error("%s: exception: %s", "callUserScope", err.what());
        } catch (...) {
            Syslog::error("%s: exception: %s", "callUserScope", "unknown");
        }
    }
    ::_exit(answered ? EXIT_SUCCESS : EXIT_FAILURE);
}

/// A child at work, and the end that its answer comes out of.
struct Worker {
    FileDescriptor answer;
    TimedChild child;
};

Worker startWorker(const Identity& identity, const std::function<std::string()>& function) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        Utils::syslogErrno("callUserScope", "pipe2", errno);
        throw vard_error("callUserScope");
    }
    FileDescriptor reader(ends[0]);
    const FileDescriptor writer(ends[1]);
    Utils::rememberJournalSocket();
    const pid_t pid = OwnChildren::fork();
    if (pid < 0) {
        Utils::syslogErrno("callUserScope", "fork", errno);
        throw vard_error("callUserScope");
    }
    if (pid == 0) {
        answerAsUser(identity, function, writer.get());
    }
    return {std::move(reader), TimedChild(pid)};
}

// What the child writes until it closes its end; none when it does not by `end`. It may be a secret: no copy stays
// behind here, nor where the text had to grow.
std::optional<std::string> readAnswer(const Worker& worker, const Deadline& end) {
    std::string answer;
    answer.reserve(largestAnswer);
    const Utils::WipeGuard guard(answer);
    while (!end.passed() && !worker.child.process().stopped()) {
        pollfd entry{worker.answer.get(), POLLIN, 0};
        if (::poll(&entry, 1, std::min(Deadline::in(TimedChild::stopLook), end).pollTime()) <= 0) {
            continue;
        }
        std::array<char, 4096> block{};
        const ssize_t count = ::read(worker.answer.get(), block.data(), block.size());
        if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) {
            return std::exchange(answer, {});
        }
        answer.append(block.data(), count > 0 ? static_cast<size_t>(count) : 0);
        Utils::wipe(block.data(), block.size());
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> callUserScope(const Session& session, const std::function<std::string()>& function,
                                         Patience& patience, std::chrono::milliseconds limit) {
    auto& children = session.users();
    const auto left = std::min(limit, children.grant(patience, session.uid, "callUserScope"));
    if (left.count() == 0) {
        return std::nullopt;
    }
    Worker worker = startWorker(Identity::of(session.username), function);
    auto answer = readAnswer(worker, Deadline::in(left));
    const auto status = worker.child.wait(answer ? closingLimit : 0ms, "callUserScope");
    children.remember(patience, session.uid, "callUserScope", worker.child);
    if (answer && status != 0) {
        Utils::wipe(*answer);
        answer.reset();
    }
    return answer;
}

} // namespace Vard
