// Running programs inside a session.
#include "session_command.h"

#include "child_descriptors.h"
#include "logger.h"
#include "own_children.h"
#include "process.h"
#include "session_environment.h"
#include "session_supervisor.h"
#include "timed_child.h"

#include <unistd.h>

#include <cerrno>

namespace Vard {

namespace {

pid_t startSessionCommand(const Session& session, const Identity& identity, const std::filesystem::path& program,
                          const std::list<std::string>& args, const std::list<std::string>& environment,
                          const ChildOptions& options) {
    auto variables = sessionEnvironment(session);
    variables.insert(variables.end(), environment.begin(), environment.end());
    return Utils::runChildProcess(program, args, identity, variables, options);
}

} // namespace

ChildWait runSessionCommand(const Session& session, const std::filesystem::path& program,
                            const std::list<std::string>& args, const std::list<std::string>& environment, bool log) {
    return runSessionCommand(session, Identity::of(session.username), program, args, environment, log);
}

ChildWait runSessionCommand(const Session& session, const Identity& identity, const std::filesystem::path& program,
                            const std::list<std::string>& args, const std::list<std::string>& environment, bool log) {
    const ChildOptions options{log ? session.commandLog() : std::filesystem::path{}};
    return ChildWait(session.tasks(), startSessionCommand(session, identity, program, args, environment, options));
}

std::optional<int> runSessionTool(const Session& session, const char* name, const std::filesystem::path& program,
                                  const std::list<std::string>& args, const ChildOptions& options) {
    auto& children = session.users();
    const auto left = children.grant(children.tools, session.uid, name);
    if (left.count() == 0) {
        return std::nullopt;
    }
    TimedChild tool(startSessionCommand(session, Identity::of(session.username), program, args, {}, options));
    Syslog::debug("%s: wait pid: %d", name, tool.process().pid());
    const auto status = tool.wait(left, name);
    children.remember(children.tools, session.uid, name, tool);
    if (status) {
        Utils::syslogWaitStatus(*status, name, tool.process().pid());
    }
    return status;
}

std::optional<ChildWait> runSessionOpen(const Session* session, const std::filesystem::path& program,
                                        const std::list<std::string>& args) {
    if (session == nullptr) {
        Syslog::error("%s: xvfb session null", "runSessionOpen");
        return std::nullopt;
    }
    const Identity identity = Identity::of(session->username);
    // A stop signal that comes before the supervisor listens must wait for it, not be lost or kill it.
    const SupervisorSignals blocked;
    const pid_t service = ::getpid();
    Utils::rememberJournalSocket();
    const pid_t pid = OwnChildren::fork();
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

} // namespace Vard
