// The connector: its port, its certificate.
#include "looks.h"
#include "program_run.h"
#include "small_file.h"
#include "unit_file.h"
#include "user_database.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <optional>
#include <set>
#include <sstream>

namespace fs = std::filesystem;

namespace Vardctl {

namespace {

constexpr const char* portUnit = "vard_connector.socket";
constexpr const char* connectorProgram = "/usr/libexec/vard/vard_connector";
constexpr const char* certificateDirectory = "/var/lib/vard_connector/freerdp/shadow";
constexpr size_t largestTable = 16 << 20;
constexpr int fewDays = 30;
constexpr int secondsOfDay = 24 * 60 * 60;

/// The number of a port behind an address, if any; 0 for something else.
int portOf(const std::string& listen) { return std::atoi(listen.substr(listen.rfind(':') + 1).c_str()); }

/// The kernel's numbers of the sockets that listen on a port.
std::set<std::string> listeners(int port) {
    constexpr const char* listening = "0A";
    std::set<std::string> numbers;
    for (const auto* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::istringstream lines(Vard::Utils::readFile(table, largestTable, Vard::LastLink::followed));
        std::string line;
        for (std::getline(lines, line); std::getline(lines, line);) {
            std::istringstream fields(line);
            std::string place, local, remote, state, number; // NOLINT(*-isolate-declaration)
            fields >> place >> local >> remote >> state;
            for (int skipped = 0; skipped < 6; ++skipped) {
                fields >> number;
            }
            if (state == listening && std::stoi(local.substr(local.rfind(':') + 1), nullptr, 16) == port) {
                numbers.insert("socket:[" + number + "]");
            }
        }
    }
    return numbers;
}

bool holdsOne(const fs::path& process, const std::set<std::string>& sockets) {
    std::error_code failed;
    for (fs::directory_iterator it(process / "fd", failed), end; !failed && it != end; it.increment(failed)) {
        std::error_code gone;
        if (sockets.contains(fs::read_symlink(it->path(), gone).string())) {
            return true;
        }
    }
    return false;
}

/// A process that holds a port.
struct Holder {
    std::string pid;
    std::string program;
    /// The service manager, or the connector, whatever has been installed since it was started.
    [[nodiscard]] bool rightful() const { return pid == "1" || program.starts_with(connectorProgram); }
};

std::vector<Holder> holdersOf(const std::set<std::string>& sockets) {
    std::vector<Holder> holders;
    std::error_code failed;
    for (fs::directory_iterator it("/proc", failed), end; !failed && it != end; it.increment(failed)) {
        const auto pid = it->path().filename().string();
        if (pid.find_first_not_of("0123456789") == std::string::npos && holdsOne(it->path(), sockets)) {
            std::error_code gone;
            holders.push_back({pid, fs::read_symlink(it->path() / "exe", gone).string()});
        }
    }
    return holders;
}

void reportPort(int port, bool enabled, const Findings& findings) {
    const auto name = "port " + std::to_string(port);
    const auto sockets = listeners(port);
    const auto holders = holdersOf(sockets);
    const auto stranger = std::ranges::find_if(holders, [](const Holder& holder) { return !holder.rightful(); });
    if (stranger != holders.end()) {
        findings.error(name + " is held by pid " + stranger->pid + ", " + stranger->program,
                       "end that program, or give the connector another port by a drop-in of " + std::string(portUnit));
    } else if (!sockets.empty() && holders.empty()) {
        findings.error(name + " is held by a process that cannot be seen", "look at it from outside of this container");
    } else if (sockets.empty() && enabled) {
        findings.warning("nobody listens on " + name, std::string("systemctl start ") + portUnit);
    } else if (!sockets.empty()) {
        findings.ok(name + " is held by " + (holders[0].pid == "1" ? "the service manager" : "the connector"));
    }
}

std::string readKey(const std::string& name) {
    return Vard::Utils::readSmallFile(fs::path(certificateDirectory) / name);
}

/// The seconds until a certificate ends; none when it cannot be read.
std::optional<double> secondsLeft(const std::string& certificate, uid_t reader) {
    const auto text = outputOf({"openssl", "x509", "-noout", "-enddate"}, reader, certificate).value_or("");
    std::istringstream words(text.substr(std::min(text.find('=') + 1, text.size())));
    std::tm end{};
    words >> std::get_time(&end, "%b %d %H:%M:%S %Y");
    return words ? std::optional(std::difftime(::timegm(&end), std::time(nullptr))) : std::nullopt;
}

void reportEnd(const std::string& certificate, uid_t reader, const Findings& findings) {
    const auto renew = std::string("remove shadow.crt and shadow.key in ") + certificateDirectory +
                       " and restart vard_connector, which makes new ones, or put yours there";
    const auto seconds = secondsLeft(certificate, reader);
    const int days = seconds ? static_cast<int>(*seconds / secondsOfDay) : 0;
    if (!seconds) {
        findings.error("shadow.crt is no certificate", renew);
    } else if (*seconds <= 0) {
        findings.error("the certificate has ended, days ago: " + std::to_string(-days), renew);
    } else if (days < fewDays) {
        findings.warning("the certificate ends, in days: " + std::to_string(days), renew);
    } else {
        findings.ok("the certificate ends, in days: " + std::to_string(days));
    }
}

void reportPair(const std::string& certificate, const std::string& key, uid_t reader, const Findings& findings) {
    const auto mine = outputOf({"openssl", "x509", "-noout", "-pubkey"}, reader, certificate);
    const auto other = outputOf({"openssl", "pkey", "-pubout"}, reader, key);
    if (!mine || !other || *mine != *other) {
        findings.error("shadow.key is not the key of shadow.crt", "put the two there that belong together");
    }
}

/// Whose the file is, and who may read it: a key is its owner's alone.
void reportOwner(const std::string& name, mode_t forbidden, const Findings& findings) {
    const auto path = fs::path(certificateDirectory) / name;
    struct stat info {};
    const auto owner = Vard::Utils::getUserUid("vard-connector");
    if (::lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_uid != owner ||
        (info.st_mode & forbidden) != 0) {
        findings.error(
            path.string() + " is no file of vard-connector's alone",
            "chown vard-connector:vard-connector, and chmod " + std::string(name.ends_with("key") ? "600" : "644"));
    }
}

} // namespace

void lookAtPort(const Subject& /*subject*/, const Findings& findings) {
    const auto addresses = unitValues(portUnit, "ListenStream");
    if (addresses.empty()) {
        findings.warning(std::string("no unit ") + portUnit, "install the package anew, if clients come by it");
        return;
    }
    const bool enabled = fs::is_symlink(fs::path("/etc/systemd/system/sockets.target.wants") / portUnit);
    if (!enabled) {
        findings.warning("the connector is not enabled",
                         "systemctl enable --now vard_connector, if clients come by it");
    }
    std::set<int> ports;
    std::ranges::transform(addresses, std::inserter(ports, ports.end()), portOf);
    for (const int port : ports) {
        reportPort(port, enabled, findings);
    }
}

void lookAtCertificate(const Subject& /*subject*/, const Findings& findings) {
    const fs::path directory = certificateDirectory;
    if (!fs::exists(directory / "shadow.crt") && !fs::exists(directory / "shadow.key")) {
        findings.ok("made at the connector's first start");
        return;
    }
    reportOwner("shadow.crt", S_IWGRP | S_IWOTH, findings);
    reportOwner("shadow.key", S_IRWXG | S_IRWXO, findings);
    if (!outputOf({"openssl", "version"})) {
        findings.warning("the certificate cannot be read: no program openssl", "apt install openssl");
        return;
    }
    const auto reader = strangerId();
    const auto certificate = readKey("shadow.crt");
    reportEnd(certificate, reader, findings);
    reportPair(certificate, readKey("shadow.key"), reader, findings);
}

} // namespace Vardctl
