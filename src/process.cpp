// Starting a program under a user's identity: the parent's half.
#include "process.h"

#include "child_descriptors.h"
#include "exceptions.h"
#include "logger.h"
#include "own_children.h"

#include <cerrno>
#include <csignal>
#include <map>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace Vard {

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

void requireProgram(const fs::path& program) {
    std::error_code failed;
    if (!fs::exists(program, failed)) {
        Syslog::error("%s: program not found: %s", "runChildProcess", program.c_str());
        throw vard_error("runChildProcess");
    }
}

} // namespace

namespace Utils {

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
