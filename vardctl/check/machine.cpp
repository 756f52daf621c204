// What the service needs of the machine beside its own files.
#include "looks.h"
#include "program_run.h"
#include "small_file.h"
#include "trust.h"
#include "unit_file.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/timex.h>

#include <cstdlib>
#include <optional>
#include <vector>

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

/// True when a process has a /proc that shows it its user's processes only.
bool hidesInside(const fs::path& process) {
    const auto mounts = Vard::Utils::readSmallFile(process / "mountinfo");
    const auto last = mounts.rfind(" / /proc ");
    return mounts.substr(std::min(last, mounts.size()), mounts.find('\n', last) - last).find("hidepid=") !=
           std::string::npos;
}

/// True when a unit's processes see those of their own user only.
bool hidesProcesses(const std::string& unit) {
    const auto values = unitValues(unit, "ProtectProc");
    return !values.empty() && values.back() != "default";
}

/// A user's service manager that runs without that, as one that was started before.
std::optional<std::string> openManager() {
    std::error_code failed;
    for (fs::directory_iterator it("/proc", failed), end; !failed && it != end; it.increment(failed)) {
        struct stat info {};
        const auto process = it->path();
        if (::stat(process.c_str(), &info) == 0 && info.st_uid >= firstHuman &&
            Vard::Utils::readSmallFile(process / "comm") == "systemd\n" && !hidesInside(process)) {
            return process.filename().string();
        }
    }
    return std::nullopt;
}

void reportHiding(const Findings& findings) {
    if (const auto pid = openManager()) {
        findings.warning("a user's service manager sees all processes, pid " + *pid,
                         "it was started before the drop-in: it ends when its user has logged out everywhere");
    } else if (!fs::exists("/etc/cron.allow") && fs::exists("/usr/bin/crontab")) {
        findings.warning("sessions hide other users' processes, cron jobs do not, and everybody may have some",
                         "name root alone in /etc/cron.allow and /etc/at.allow, or hide processes by hidepid=2");
    } else {
        findings.ok(
            "sessions and the users' service managers hide other users' processes: enough while users come in "
            "by no other way");
    }
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

/// Where room is needed, with the homes that are file systems of their own.
std::vector<fs::path> placesOfRoom() {
    std::vector<fs::path> places{"/run", "/tmp", "/var", "/home"};
    std::error_code failed;
    for (fs::directory_iterator it("/home", failed), end; !failed && it != end; it.increment(failed)) {
        struct stat own {};
        struct stat above {};
        if (::lstat(it->path().c_str(), &own) == 0 && ::lstat("/home", &above) == 0 && own.st_dev != above.st_dev) {
            places.push_back(it->path());
        }
    }
    return places;
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
        reportHiding(findings);
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
    for (const fs::path& path : placesOfRoom()) {
        struct statvfs room {};
        if (!fs::exists(path)) {
            continue; // homes may be elsewhere
        }
        if (::statvfs(path.c_str(), &room) != 0) {
            findings.error(path.string() + " cannot be looked at", "mount or make it");
            continue;
        }
        const auto used = room.f_blocks - room.f_bfree; // what is kept for root is not free
        reportShare(path.string(), static_cast<double>(room.f_bavail), static_cast<double>(used + room.f_bavail),
                    findings);
        reportShare(path.string() + ", files", static_cast<double>(room.f_favail), static_cast<double>(room.f_files),
                    findings);
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
        findings.warning(
            "the clock is not synchronised",
            "apt install systemd-timesyncd, or another client of NTP; in a container it is the host's clock");
    } else {
        findings.ok("the clock is synchronised");
    }
}

} // namespace Vardctl
