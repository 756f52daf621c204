// The service: its unit, its groups, its place on the bus.
#include "bus_client/connection.h"
#include "looks.h"
#include "program_run.h"
#include "trust.h"
#include "user_database.h"

#include <grp.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <map>
#include <sstream>

namespace fs = std::filesystem;

namespace Vardctl {

namespace {

using namespace std::chrono_literals;

constexpr auto busLimit = 5s;
constexpr const char* denied = "org.freedesktop.DBus.Error.AccessDenied";
constexpr const char* reloadBus = "systemctl reload dbus; the policy files are in /usr/share/dbus-1/system.d";

/// The error that a call of the service is answered with; empty for a result.
std::string errorOf(BusClient::Connection& bus, const char* method, const char* types = "", uint32_t argument = 0) {
    try {
        *types != '\0' ? bus.call(method, busLimit, types, argument) : bus.call(method, busLimit);
        return "";
    } catch (const BusClient::Error& error) {
        return error.name();
    }
}

/// The same for another user, in a process that is his.
bool isDenied(const passwd& user, const char* method, const char* types = "", uint32_t argument = 0) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        const bool his =
            ::initgroups(user.pw_name, user.pw_gid) == 0 && ::setgid(user.pw_gid) == 0 && ::setuid(user.pw_uid) == 0;
        bool refused = true;
        try {
            BusClient::Connection bus;
            refused = his && errorOf(bus, method, types, argument) == denied;
        } catch (const std::exception&) { // the bus does not even let him in
        }
        ::_exit(refused ? 1 : 0);
    }
    int status = 0;
    return ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

void lookAtPolicyFiles(const Findings& findings) {
    for (const fs::path file : {"ru.korvex.vard.conf", "ru.korvex.vard.connector.conf"}) {
        const auto usual = "/usr/share/dbus-1/system.d" / file;
        const auto path = fs::exists(usual) ? usual : "/etc/dbus-1/system.d" / file;
        if (!fs::exists(path)) {
            findings.error("no bus policy " + usual.string(), "install the package anew");
        } else if (const auto flaw = whoElseWrites(path); !flaw.empty()) {
            findings.error(flaw, ownedByRoot);
        }
    }
}

// No session has that number: nothing comes of the question.
void lookAtPolicyInForce(const Findings& findings) {
    const auto* nobody = ::getpwnam("nobody");
    if (nobody != nullptr && !isDenied(*nobody, "vardStatus")) {
        findings.error("the bus lets everybody call the service",
                       std::string("take what allows it out of the policy: ") + reloadBus);
        return;
    }
    const auto* connector = ::getpwnam("vard-connector");
    if (connector != nullptr && isDenied(*connector, "vardSessionInfoJson", "u", UINT32_MAX)) {
        findings.error("the bus does not let vard-connector call the service", reloadBus);
        return;
    }
    findings.ok("the bus knows the policy");
}

pid_t pidOnBus(const BusClient::Connection& bus) {
    sd_bus_creds* creds = nullptr;
    pid_t pid = 0;
    if (sd_bus_get_name_creds(bus.get(), BusClient::serviceName, SD_BUS_CREDS_PID, &creds) >= 0) {
        sd_bus_creds_get_pid(creds, &pid);
    }
    sd_bus_creds_unref(creds);
    return pid;
}

void lookAtRunning(pid_t pid, const Findings& findings) {
    std::error_code failed;
    const auto program = fs::read_symlink("/proc/" + std::to_string(pid) + "/exe", failed).string();
    const auto who = "the service answers, pid " + std::to_string(pid);
    if (program.ends_with(" (deleted)")) {
        findings.warning(who + ", but runs an older program than the installed one",
                         "restart it when nobody works: `systemctl restart vard_service' ends every session");
    } else {
        findings.ok(who);
    }
}

using Properties = std::map<std::string, std::string>;

Properties propertiesOf(const std::string& unit) {
    Properties properties;
    std::istringstream lines(outputOf({"systemctl", "show", unit, "--property",
                                       "LoadState,ActiveState,Result,NRestarts,NeedDaemonReload,UnitFileState"})
                                 .value_or(""));
    for (std::string line; std::getline(lines, line);) {
        const auto sign = line.find('=');
        if (sign != std::string::npos) {
            properties[line.substr(0, sign)] = line.substr(sign + 1);
        }
    }
    return properties;
}

void lookAtStarts(Properties& unit, const Findings& findings) {
    const auto active = unit["ActiveState"];
    if (active == "failed") { // the unit is restarted always, but for too many starts in a minute
        findings.error("failed and given up: " + unit["Result"],
                       "journalctl -u vard_service says why; then `systemctl reset-failed vard_service' and start it");
    } else if (active != "active") {
        findings.warning("the service does not run: " + active, "systemctl start vard_service");
    } else if (unit["NRestarts"] != "0") {
        findings.warning("started anew by itself, times: " + unit["NRestarts"], "journalctl -u vard_service says why");
    } else {
        findings.ok(active);
    }
}

std::string shown(const std::vector<std::string>& names) {
    std::string text;
    for (const auto& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text.empty() ? "nobody" : text;
}

// Accounts of people; those of programs have lower numbers.
bool isHuman(const std::string& name) {
    constexpr uid_t nobody = 65534;
    const auto* entry = ::getpwnam(name.c_str());
    return entry != nullptr && entry->pw_uid >= firstHuman && entry->pw_uid != nobody;
}

void lookAtGroup(const std::string& group, const std::string& power, const Findings& findings) {
    if (::getgrnam(group.c_str()) == nullptr) {
        findings.error("no group " + group, "systemd-sysusers vard.conf, or correct \"xauth:group\"");
        return;
    }
    const auto members = Vard::Utils::getGroupMembers(group);
    std::vector<std::string> people;
    std::ranges::copy_if(members, std::back_inserter(people), isHuman);
    if (power.empty() || people.empty()) {
        findings.ok(group + ": " + shown(members));
    } else {
        findings.warning(group + " has accounts of people: " + shown(people),
                         "they " + power + ": `gpasswd -d USER " + group + "', unless that is wanted");
    }
}

} // namespace

void lookAtUnit(const Subject& /*subject*/, const Findings& findings) {
    auto unit = propertiesOf("vard_service.service");
    if (unit.empty()) {
        findings.warning("the service manager does not answer",
                         "start the machine with systemd, or watch over the service otherwise");
        return;
    }
    if (unit["LoadState"] != "loaded") {
        findings.error("vard_service.service: " + unit["LoadState"],
                       "install the package anew, or `systemctl unmask' it");
        return;
    }
    lookAtStarts(unit, findings);
    if (unit["NeedDaemonReload"] == "yes") {
        findings.warning("the unit's files have changed", "systemctl daemon-reload");
    }
    // The connector brings it along.
    if (unit["UnitFileState"] == "disabled" && propertiesOf("vard_connector.service")["UnitFileState"] != "enabled") {
        findings.warning("not started with the machine", "systemctl enable vard_service");
    }
}

void lookAtBus(const Subject& /*subject*/, const Findings& findings) {
    lookAtPolicyFiles(findings);
    try {
        BusClient::Connection bus;
        const auto pid = pidOnBus(bus);
        if (pid == 0) {
            findings.warning("the service is not on the bus", "systemctl start vard_service");
        } else if (const auto error = errorOf(bus, "vardStatus"); error == denied) {
            findings.error("the bus does not let root call the service", reloadBus);
        } else if (!error.empty()) {
            findings.error("the service does not answer: " + error, "journalctl -t vard_service says what it does");
        } else {
            lookAtRunning(pid, findings);
            lookAtPolicyInForce(findings);
        }
    } catch (const BusClient::Error& error) {
        findings.error(error.what(), "systemctl start dbus.socket: without a bus the service does not run");
    }
}

void lookAtGroups(const Subject& subject, const Findings& findings) {
    lookAtGroup(subject.settings().setting(Vard::Settings::xauthGroup), "see and steer all sessions", findings);
    lookAtGroup("vard-frontend", "can become any user", findings);
    lookAtGroup("vard-monitor", "", findings);
}

} // namespace Vardctl
