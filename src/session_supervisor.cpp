// The supervisor of a session's program. It is a copy of the service that never executes anything else, so it first
// lets go of all that is the service's: descriptors, which would keep the bus name after a crash, and secrets of other
// users.
#include "session_supervisor.h"

#include "child_descriptors.h"
#include "deadline.h"
#include "logger.h"
#include "own_children.h"
#include "pam_service.h"
#include "process.h"
#include "session_environment.h"

#include <grp.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

namespace Vard {

namespace {

// How long the program and what it left behind are given after SIGTERM.
constexpr std::chrono::seconds patience{3};

void require(bool done, const char* call) {
    if (!done) {
        Utils::syslogErrno("runSessionOpen", call, errno);
        Utils::endAsFailure();
    }
}

volatile std::sig_atomic_t toldToEnd = 0; // while the modules of PAM run

// PAM's modules start daemons and helpers, which keep for life what is blocked now: nothing is. A stop signal in that
// time is remembered.
void remember(int /*signal*/) { toldToEnd = 1; }

void leaveService() {
    Syslog::syslogChildOpen();
    Utils::resetChildSignals(remember);
    ::setsid();
    ::closelog(); // before its descriptor is closed and given to somebody else
    Utils::closeInheritedDescriptors();
    Utils::redirectInput();
    Utils::redirectOutputsFdTo({});
    ::prctl(PR_SET_DUMPABLE, 0);
    ::prctl(PR_SET_CHILD_SUBREAPER, 1); // what the program leaves behind comes here and is ended
}

void openPam(const Session& session, const Identity& identity) {
    require(::initgroups(identity.user.c_str(), identity.gid) == 0, "initgroups");
    if (!session.pam) {
        Syslog::error("%s: pam session null", "runSessionOpen");
        Utils::endAsFailure();
    }
    if (!PamService::openSession(session.pam->getHandle())) {
        Syslog::error("%s: pam session failed", "runSessionOpen");
        Utils::endAsFailure();
    }
    Secret::wipeAll();
}

// From now on both signals are taken one by one.
void takeSignals() {
    const sigset_t taken = SupervisorSignals::set();
    ::sigprocmask(SIG_SETMASK, &taken, nullptr);
    if (toldToEnd != 0) {
        ::raise(SIGTERM);
    }
}

void giveUpRoot(const Identity& identity) {
    if (::chdir(identity.home.c_str()) != 0) {
        Utils::syslogErrno("runSessionOpen", "chdir", errno); // a missing home is no reason to end the session
        require(::chdir("/") == 0, "chdir");
    }
    require(::setgid(identity.gid) == 0, "setgid");
    require(::setuid(identity.uid) == 0, "setuid");
    ::prctl(PR_SET_DUMPABLE, 0);
}

// A service that is killed tells nobody to end; the change of ids has undone what was said before it.
void endWithService(pid_t service) {
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != service) {
        ::raise(SIGTERM); // blocked, and taken by the watch
    }
}

/// Waits for the program and reaps whatever else comes here.
class Watch {
public:
    Watch(pid_t program, pid_t service) : program_(program), service_(service) {}

    /// Until the program has ended or the supervisor is told to end.
    void untilEnd() {
        const sigset_t taken = SupervisorSignals::set();
        while (reap() && !programEnded_) {
            if (::sigwaitinfo(&taken, nullptr) == SIGTERM) {
                return;
            }
        }
    }

    /// Ends the program if it still runs, gently first, and what it left behind when nobody else would do that.
    void endAll() {
        const auto deadline = Deadline::in(patience);
        while (hasWork() && !deadline.passed()) {
            tell(SIGTERM); // who came here meanwhile, too, orphaned by those that went
            waitChild(deadline.left());
        }
        // Who cannot be killed (a program with another identity) must not keep the session from ending.
        const auto giveUp = Deadline::in(patience);
        while (hasWork() && !giveUp.passed()) {
            tell(SIGKILL);
            waitChild(std::chrono::milliseconds(100));
        }
    }

    [[nodiscard]] int status() const { return status_; }

private:
    // The service adopts what is left once this process has gone, and ends it with root's power: the session must not
    // wait for that.
    bool hasWork() { return reap() && (!programEnded_ || ::getppid() != service_); }

    // False when there are no children left.
    bool reap() {
        int status = 0;
        pid_t pid = 0;
        while ((pid = ::waitpid(-1, &status, WNOHANG)) > 0) {
            if (pid == program_) {
                status_ = status;
                programEnded_ = true;
            }
        }
        return pid == 0;
    }

    static void tell(int number) {
        for (const pid_t pid : OwnChildren::listed()) {
            ::kill(pid, number);
        }
    }

    static void waitChild(std::chrono::milliseconds limit) {
        const timespec time{limit.count() / 1000, limit.count() % 1000 * 1'000'000};
        sigset_t child{};
        ::sigemptyset(&child);
        ::sigaddset(&child, SIGCHLD);
        ::sigtimedwait(&child, nullptr, &time);
    }

    pid_t program_;
    pid_t service_;
    int status_ = 0;
    bool programEnded_ = false;
};

int exitCode(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status); }

[[noreturn]] void supervise(const Session& session, const Identity& identity, const std::filesystem::path& program,
                            const std::list<std::string>& args, pid_t service) {
    leaveService();
    openPam(session, identity);
    takeSignals();
    ChildOptions options;
    options.endWithParent = true;
    const pid_t pid = Utils::runChildProcess(program, args, identity, sessionEnvironment(session), options);
    Watch watch(pid, service);
    giveUpRoot(identity);
    endWithService(service);
    changeProcessName("vard_manager");
    Syslog::debug("%s: wait pid: %d", "vardManagerWait", pid);
    watch.untilEnd();
    watch.endAll();
    Utils::syslogWaitStatus(watch.status(), "vardManagerWait", pid);
    ::_exit(exitCode(watch.status()));
}

} // namespace

SupervisorSignals::SupervisorSignals() {
    const sigset_t taken = set();
    ::pthread_sigmask(SIG_BLOCK, &taken, &before_);
}

SupervisorSignals::~SupervisorSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

sigset_t SupervisorSignals::set() {
    sigset_t signals{};
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGTERM);
    ::sigaddset(&signals, SIGCHLD);
    return signals;
}

void superviseSession(const Session& session, const Identity& identity, const std::filesystem::path& program,
                      const std::list<std::string>& args, pid_t service) noexcept {
    try {
        supervise(session, identity, program, args, service);
    } catch (const std::exception& err) {
        Syslog::error("%s: exception: %s", "runSessionOpen", err.what());
    } catch (...) {
        Syslog::error("%s: exception: %s", "runSessionOpen", "unknown");
    }
    Utils::endAsFailure();
}

} // namespace Vard
