// The X servers of the sessions.
#include "looks.h"
#include "server_arguments.h"
#include "small_file.h"
#include "trial_server.h"
#include "trust.h"

#include <sched.h>

#include <algorithm>
#include <sstream>

namespace fs = std::filesystem;

namespace Vardctl {

namespace {

using namespace std::chrono_literals;
namespace Settings = Vard::Settings;

constexpr auto serviceWait = 5s; // the service gives a server up then

/// The file that the server's arguments name as its configuration; empty when they name none.
fs::path configurationOf(const Vard::JsonConfig& settings) {
    const auto words = Vard::serverArguments(settings.setting(Settings::serverArgs), 0, 24, 1, 1, "/");
    const auto option = std::ranges::find(words, "-config");
    const bool named = option != words.end() && std::next(option) != words.end();
    return named ? "/etc/X11" / fs::path(*std::next(option)) : fs::path(); // an absolute name stays
}

/// The drivers that a configuration asks for.
std::vector<std::string> driversIn(const fs::path& file) {
    std::istringstream lines(Vard::Utils::readSmallFile(file, true));
    std::vector<std::string> drivers;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word;
        std::string name;
        if (words >> word && word == "Driver" && words >> name && name.size() > 2) {
            drivers.push_back(name.substr(1, name.size() - 2)); // the quotation marks
        }
    }
    return drivers;
}

void lookAtServerConfiguration(const Vard::JsonConfig& settings, const Findings& findings) {
    const auto file = configurationOf(settings);
    if (file.empty()) {
        findings.ok("the server's arguments name no configuration");
        return;
    }
    if (!fs::is_regular_file(file)) {
        findings.error(file.string() + " is missing",
                       "install the package anew with --force-confmiss, or correct \"xvfb:args\"");
        return;
    }
    if (const auto flaw = whoElseWrites(file); !flaw.empty()) {
        findings.error(flaw, ownedForUsers);
    }
    for (const auto& driver : driversIn(file)) {
        const auto module = "/usr/lib/xorg/modules/drivers/" + driver + "_drv.so";
        if (!fs::exists(module)) {
            findings.error(module + " is missing", "apt install xserver-xorg-video-" + driver);
        }
    }
    findings.ok(file.string());
}

std::string readNumber(const char* file) {
    auto text = Vard::Utils::readSmallFile(file);
    text.erase(std::min(text.find('\n'), text.size()));
    return text;
}

} // namespace

void lookAtXServer(const Subject& subject, const Findings& findings) {
    const auto settings = subject.settings();
    lookAtServerConfiguration(settings, findings);
    const auto trial = tryServer(settings);
    const auto took = " after " + std::to_string(trial.took.count()) + " ms";
    if (!trial.possible) {
        findings.warning("no server was started: " + trial.problem, "log somebody in: `vardctl login'");
    } else if (!trial.answered) {
        findings.error("a server was started, but " + trial.problem + took,
                       "nobody gets a session: mend what is named here, or run its command line by hand");
    } else if (trial.took > serviceWait) {
        findings.warning("a server answers only" + took,
                         "the service waits 5 s: the machine is too slow or overloaded");
    } else {
        findings.ok("a server was started and answers" + took);
    }
}

void lookAtNamespaces(const Subject& subject, const Findings& findings) {
    if (!subject.settings().setting(Settings::serverIsolated)) {
        findings.warning("\"xvfb:netns\" is false: every user can try cookies at every X server",
                         "set it to true, unless the X servers are to serve the network");
        return;
    }
    for (const auto* file : {"/proc/sys/user/max_net_namespaces", "/proc/sys/user/max_mnt_namespaces"}) {
        if (readNumber(file) == "0") {
            findings.warning(std::string(file) + " is 0", "raise it with sysctl, and in /etc/sysctl.d");
        }
    }
    if (::unshare(CLONE_NEWNS | CLONE_NEWNET) == 0) {
        findings.ok("X servers can have a network and a mount namespace of their own");
    } else {
        findings.warning("no namespaces here: every user can try cookies at every X server",
                         "let this machine make namespaces; a container's host forbids them");
    }
}

} // namespace Vardctl
