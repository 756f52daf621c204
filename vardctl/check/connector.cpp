// The connector: its port, its certificate.
#include "looks.h"
#include "program_run.h"
#include "small_file.h"
#include "trust.h"
#include "unit_file.h"
#include "user_database.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <optional>
#include <set>
#include <sstream>
#include <vector>

namespace fs = std::filesystem;

namespace Vardctl {

namespace {

constexpr const char* portUnit = "vard_connector.socket";
constexpr const char* connectorProgram = "/usr/libexec/vard/vard_connector";
constexpr const char* certificateDirectory = "/var/lib/vard_connector/freerdp/shadow";
constexpr int fewDays = 30;
constexpr int secondsOfDay = 24 * 60 * 60;

/// The port of an address that a unit listens on; none for a socket of another kind.
std::optional<int> portOf(const std::string& listen) {
    const auto digits = listen.substr(listen.rfind(':') + 1);
    int port = 0;
    const auto [end, failed] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    const bool whole = failed == std::errc{} && end == digits.data() + digits.size();
    return whole && !listen.starts_with("vsock:") ? std::optional(port) : std::nullopt;
}

/// A socket that listens.
struct Listener {
    uid_t user = Vard::unknownUid; ///< who made it; in a namespace of his own, too
    std::string number; ///< the kernel's
};

// Users can make the tables long.
std::vector<Listener> listeners(int port) {
    constexpr const char* listening = "0A";
    std::vector<Listener> found;
    for (const auto* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream lines(table);
        std::string line;
        for (std::getline(lines, line); std::getline(lines, line);) {
            std::istringstream fields(line);
            std::string place, local, remote, state, skipped; // NOLINT(*-isolate-declaration)
            Listener listener;
            fields >> place >> local >> remote >> state >> skipped >> skipped >> skipped >> listener.user >> skipped >>
                listener.number;
            if (state == listening && std::stoi(local.substr(local.rfind(':') + 1), nullptr, 16) == port) {
                found.push_back(listener);
            }
        }
    }
    return found;
}

bool holds(const fs::path& process, const std::string& socket) {
    std::error_code failed;
    for (fs::directory_iterator it(process / "fd", failed), end; !failed && it != end; it.increment(failed)) {
        std::error_code gone;
        if (fs::read_symlink(it->path(), gone) == socket) {
            return true;
        }
    }
    return false;
}

/// A process that holds a port.
struct Holder {
    std::string pid;
    std::string program;
    [[nodiscard]] bool serviceManager() const { return pid == "1"; }
    /// The service manager, or the connector, whatever has been installed since it was started.
    [[nodiscard]] bool rightful() const { return serviceManager() || program.starts_with(connectorProgram); }
};

/// The first process that holds a socket. Only for one of root's or the connector's: users can mount what they like
/// over a program of that name.
std::optional<Holder> holderOf(const std::string& number) {
    const auto socket = "socket:[" + number + "]";
    std::error_code failed;
    for (fs::directory_iterator it("/proc", failed), end; !failed && it != end; it.increment(failed)) {
        const auto pid = it->path().filename().string();
        if (pid.find_first_not_of("0123456789") == std::string::npos && holds(it->path(), socket)) {
            std::error_code gone;
            return Holder{pid, fs::read_symlink(it->path() / "exe", gone).string()};
        }
    }
    return std::nullopt;
}

void reportListener(const std::string& name, const Listener& listener, const Findings& findings) {
    const auto remedy = "end that program, or give the connector another port by a drop-in of " + std::string(portUnit);
    if (listener.user != 0 && listener.user != Vard::Utils::getUserUid("vard-connector")) {
        findings.error(name + " is held by a program of " + userName(listener.user) + "'s", remedy + "; ss -ltnp");
        return;
    }
    const auto holder = holderOf(listener.number);
    if (!holder) {
        findings.error(name + " is held by a process that cannot be seen", "look at it from outside of this container");
    } else if (!holder->rightful()) {
        findings.error(name + " is held by pid " + holder->pid + ", " + holder->program, remedy);
    } else {
        findings.ok(name + " is held by " + (holder->serviceManager() ? "the service manager" : "the connector"));
    }
}

void reportPort(int port, bool enabled, const Findings& findings) {
    const auto name = "port " + std::to_string(port);
    const auto all = listeners(port);
    for (const auto& listener : all) {
        reportListener(name, listener, findings);
    }
    if (all.empty() && enabled) {
        findings.warning("nobody listens on " + name, std::string("systemctl start ") + portUnit);
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
    for (const auto& address : addresses) {
        if (const auto port = portOf(address)) {
            ports.insert(*port);
        }
    }
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
