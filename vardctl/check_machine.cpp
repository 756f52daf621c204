// What the service needs of the machine beside its own files.
#include "looks.h"
#include "program_run.h"
#include "small_file.h"
#include "unit_file.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <sys/timex.h>

#include <cstdlib>
#include <optional>

namespace fs = std::filesystem;

namespace Vardctl {

namespace {

using namespace std::chrono_literals;

constexpr double fewPercent = 10;
constexpr double tooFewPercent = 1;

/// Whether a stranger sees root's processes in the machine's /proc; none when that cannot be tried.
std::optional<bool> strangerSeesInit() {
    RunningProgram test({"test", "-d", "/proc/1"}, strangerId());
    test.endedBy(Vard::Deadline::in(5s));
    return test.failedToRun() ? std::nullopt : std::optional(test.succeeded());
}

/// True when a unit's processes see those of their own user only.
bool hidesProcesses(const std::string& unit) {
    const auto values = unitValues(unit, "ProtectProc");
    return !values.empty() && values.back() != "default";
}

void reportShare(const std::string& what, double free, double all, const Findings& findings) {
    if (all <= 0) {
        return; // a file system without that limit
    }
    const double percent = 100 * free / all;
    const auto found = what + ": " + std::to_string(static_cast<int>(percent)) + " % free";
    if (percent < tooFewPercent) {
        findings.error(found, "make room: sessions fail when it is full");
    } else if (percent < fewPercent) {
        findings.warning(found, "make room, or watch who fills it");
    } else {
        findings.ok(found);
    }
}

} // namespace

void lookAtProcesses(const Subject& /*subject*/, const Findings& findings) {
    const bool service = hidesProcesses("vard_service.service");
    const bool managers = hidesProcesses("user@.service");
    const auto seen = strangerSeesInit();
    if (!seen) {
        findings.warning("whether users see each other's processes cannot be looked at",
                         "log in as a user: `ps -e' shows it");
    } else if (!*seen) {
        findings.ok("users see their own processes only");
    } else if (service && managers) {
        findings.ok(
            "sessions and the users' service managers hide other users' processes: enough while users come in by "
            "no other way");
    } else {
        findings.warning(std::string("users see each other's processes, and in a login the password for a moment") +
                             (managers && !service ? ": vard_service.service hides nothing" : ""),
                         "hide them: hide-processes.conf for user@.service, or hidepid=2 for /proc, as "
                         "docs/tasks/hidden_processes.md has it");
    }
}

void lookAtAudit(const Subject& /*subject*/, const Findings& findings) {
    const Vard::FileDescriptor audit(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_AUDIT));
    if (!audit) {
        findings.warning("the kernel has no audit log: logins are in the journal alone",
                         "run a kernel with CONFIG_AUDIT");
        return;
    }
    const int daemon = std::atoi(Vard::Utils::readSmallFile("/run/auditd.pid").c_str());
    findings.ok(daemon > 0 && fs::exists("/proc/" + std::to_string(daemon))
                    ? "auditd keeps the records of logins"
                    : "no auditd: the records of logins are in the kernel's log");
}

void lookAtSpace(const Subject& /*subject*/, const Findings& findings) {
    for (const auto* path : {"/run", "/tmp", "/var", "/home"}) {
        struct statvfs room {};
        if (::statvfs(path, &room) != 0) {
            findings.error(std::string(path) + " cannot be looked at", "mount or make it");
            continue;
        }
        const auto used = room.f_blocks - room.f_bfree; // what is kept for root is not free
        reportShare(path, static_cast<double>(room.f_bavail), static_cast<double>(used + room.f_bavail), findings);
        reportShare(std::string(path) + ", files", static_cast<double>(room.f_favail),
                    static_cast<double>(room.f_files), findings);
    }
}

void lookAtClock(const Subject& /*subject*/, const Findings& findings) {
    if (!fs::exists("/etc/localtime")) {
        findings.warning("no time zone: sessions and the journal have UTC", "timedatectl set-timezone ZONE");
    }
    timex state{};
    const int clock = ::adjtimex(&state);
    if (clock < 0) {
        findings.warning("whether the clock is synchronised cannot be looked at", "`timedatectl' shows it");
    } else if (clock == TIME_ERROR) {
        findings.warning("the clock is not synchronised",
                         "timedatectl set-ntp true: limits, records and certificates need the time");
    } else {
        findings.ok("the clock is synchronised");
    }
}

} // namespace Vardctl
