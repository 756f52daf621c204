// What runs in a forked child: it becomes the user and executes a program. Everything it needs from the databases was
// looked up before the fork, and nothing of it ever returns into the service.
#include "process_child.h"

#include "child_descriptors.h"
#include "logger.h"
#include "parsec.h"
#include "secret.h"

#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace fs = std::filesystem;

namespace Vard {

char** programArgv = nullptr;

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

} // namespace Vard

namespace Vard::Utils {

namespace {

constexpr mode_t logMode = 0640;
constexpr mode_t logDirectoryMode = 0700;

void warnErrno(const char* call) noexcept {
    Syslog::warning("%s: %s failed, error: %s, code: %d", "switchToUser", call, ::strerrordesc_np(errno), errno);
}

// A file of the user's, opened under the user's identity: no link, no fifo, nothing but a regular file.
int openLog(const fs::path& path) noexcept {
    if (path.empty()) {
        return -1;
    }
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, logMode);
    struct stat info {};
    if (fd >= 0 && ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && ::ftruncate(fd, 0) == 0) {
        return fd;
    }
    if (fd >= 0) {
        ::close(fd);
    }
    return -1;
}

void setVariables(const Identity& identity) noexcept {
    ::setenv("USER", identity.user.c_str(), 1);
    ::setenv("LOGNAME", identity.user.c_str(), 1);
    ::setenv("HOME", identity.home.c_str(), 1);
    ::setenv("SHELL", identity.shell.c_str(), 1);
    ::setenv("TERM", "linux", 1);
}

bool stillRoot(const Identity& identity) noexcept {
    return identity.uid != 0 && (::getuid() == 0 || ::geteuid() == 0 || ::setuid(0) == 0);
}

// What is mounted outside later is still seen in a mount namespace of its own, but not the other way round.
bool enterNamespaces(const ChildOptions& options) noexcept {
    if (options.ownNetwork && ::unshare(CLONE_NEWNET) != 0) {
        return false;
    }
    return options.seenDirectory.empty() ||
           (::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0 &&
            ::mount(options.seenDirectory.c_str(), options.usualDirectory.c_str(), nullptr, MS_BIND, nullptr) == 0);
}

void becomeOwner(const Identity& identity) noexcept {
    if (::getuid() != 0) {
        return;
    }
    if (!switchToUser(identity)) {
        endAsFailure();
    }
    ::prctl(PR_SET_DUMPABLE, 0); // still a copy of the service: no core of it is the user's
    Syslog::debug("%s: switched user: %s, current uid: %d, gid: %d", "runOwnerCommand", identity.user.c_str(),
                  static_cast<int>(::getuid()), static_cast<int>(::getgid()));
}

} // namespace

void endAsFailure() noexcept {
    Syslog::release(); // why, if that was kept back
    ::execl("/bin/false", "/bin/false", nullptr);
    ::_exit(EXIT_FAILURE);
}

void resetChildSignals(void (*onTerminate)(int)) noexcept {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number) {
        ::sigaction(number, &action, nullptr);
    }
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGHUP, &action, nullptr);
    if (onTerminate != nullptr) {
        action.sa_handler = onTerminate;
        action.sa_flags = SA_RESTART;
        ::sigaction(SIGTERM, &action, nullptr);
    }
    sigset_t none{};
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool switchToUser(const std::string& user) {
    if (user.empty()) {
        Syslog::error("%s: user empty", "switchToUser");
        return false;
    }
    try {
        return switchToUser(Identity::of(user));
    } catch (const std::exception&) {
        return false;
    }
}

// Groups need root and come before the user id; the directory is changed in between, while root may still enter it.
bool switchToUser(const Identity& identity) noexcept {
    if (identity.user.empty()) {
        Syslog::error("%s: user empty", "switchToUser");
        return false;
    }
    Syslog::info("%s: user: %s", "switchToUser", identity.user.c_str());
    Syslog::debug("%s: uid: %d, gid: %d, home: %s", "switchToUser", static_cast<int>(identity.uid),
                  static_cast<int>(identity.gid), identity.home.c_str());
    // Without this, groups of the service itself would stay; root keeps none of its own.
    if (::setgroups(identity.groups.size(), identity.groups.data()) != 0) {
        warnErrno("setgroups");
        return false;
    }
    if (::chdir(identity.home.c_str()) != 0) {
        warnErrno("chdir");
    }
    if (::setgid(identity.gid) != 0) {
        syslogErrno("switchToUser", "setgid", errno);
        return false;
    }
    if (::setuid(identity.uid) != 0 || stillRoot(identity)) {
        syslogErrno("switchToUser", "setuid", errno);
        return false;
    }
    setVariables(identity);
    return true;
}

void redirectInput() noexcept {
    const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (null > STDIN_FILENO) {
        ::dup2(null, STDIN_FILENO);
        ::close(null);
    }
}

bool redirectOutputsFdTo(const fs::path& path) noexcept {
    int fd = -1;
    if (!path.empty()) {
        ::mkdir(path.parent_path().c_str(), logDirectoryMode); // usually there
        fd = openLog(path);
    }
    const bool wanted = fd >= 0 || path.empty();
    if (fd < 0 && (fd = ::open("/dev/null", O_RDWR | O_CLOEXEC)) < 0) {
        endAsFailure(); // the user, whose process this is by now, or the machine, has left it no room
    }
    ::dup2(fd, STDERR_FILENO);
    ::dup2(fd, STDOUT_FILENO);
    if (fd > STDERR_FILENO) {
        ::close(fd);
    }
    return wanted;
}

void runOwnerCommand(const char* program, const std::vector<char*>& argv, const std::vector<char*>& envp,
                     const Identity& identity, const ChildOptions& options) noexcept {
    Syslog::syslogChildOpen();
    if (options.secretArguments) {
        Syslog::holdBack();
    }
    if (identity.integrity && !Parsec::applyIntegrity(*identity.integrity, "runChildProcess")) {
        endAsFailure();
    }
    Syslog::debug("%s: cmd: `%s', owner: `%s', pid: %d, process uid: %d", "runOwnerCommand", program,
                  identity.user.c_str(), ::getpid(), static_cast<int>(::getuid()));
    closeInheritedDescriptors();
    Secret::wipeAll();
    ::setsid(); // away from the terminal of the service, which a user's program could type into
    resetChildSignals();
    if (!enterNamespaces(options)) {
        syslogErrno("runOwnerCommand", "unshare", errno);
        endAsFailure();
    }
    becomeOwner(identity);
    if (options.endWithParent) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM); // the change of ids would have undone it
    }
    redirectInput();
    if (!redirectOutputsFdTo(options.log)) {
        Syslog::error("%s: log cannot be written: %s", "runOwnerCommand", options.log.c_str());
        endAsFailure();
    }
    ::execve(program, argv.data(), envp.data());
    syslogErrno("runOwnerCommand", "execv", errno);
    endAsFailure();
}

} // namespace Vard::Utils
