// The record of one session, and its destruction.
#include "session.h"

#include "logger.h"
#include "own_children.h"
#include "profile_volume.h"

#include <algorithm>

namespace Vard {

namespace {

void tellToEnd(const ProcessHandle& process, const char* what) {
    if (process) {
        Syslog::debug("kill %s, pid: %d", what, process.pid());
        process.terminate();
    }
}

// True when the list has a variable of the entry's name.
bool isNamedIn(const std::list<std::string>& list, const std::string& entry) {
    const std::string name = entry.substr(0, entry.find('=')) + "=";
    return std::ranges::any_of(list, [&](const std::string& other) { return other.starts_with(name); });
}

} // namespace

// The X connection goes after the children were told, then the PAM transaction.
Session::~Session() {
    endChildren();
    xcb.reset();
    pam.reset();
}

// Whoever waits for the children reaps them.
void Session::endChildren() {
    const std::scoped_lock guard(lock);
    notices.splice(notices.end(), attempts);
    for (const auto& notice : notices) {
        notice.terminate();
    }
    tellToEnd(pid3, "connector");
    tellToEnd(pid2, "xsession");
    tellToEnd(pid1, "xvfb");
    std::error_code ignored;
    if (!xauthfile.empty()) {
        std::filesystem::remove(xauthfile, ignored);
    }
    if (profileMounted) {
        // The supervisor and the server take their time, and hold the home until they have gone.
        const auto unmount = [mounted = home.string(), server = pid1, supervisor = pid2, user = uid] {
            unmountProfile(mounted,
                           [&] { return server.exists() || supervisor.exists() || AdoptedChildren::any(user); });
        };
        if (!tasks_.run("unmountProfile", unmount)) {
            unmountProfile(home.string());
        }
    }
}

std::list<std::string> Session::environments() const {
    std::list<std::string> result{"DISPLAY=:" + std::to_string(display), "XAUTHORITY=" + xauthfile.string(),
                                  "XDG_RUNTIME_DIR=" + runtimedir.string()};
    if (pam) {
        auto others = pam->getEnvironments();
        others.remove_if([&](const std::string& entry) { return isNamedIn(result, entry); });
        result.splice(result.end(), others);
    }
    return result;
}

std::filesystem::path Session::commandLog() const {
    return home / ".vard" / xauthfile.filename().replace_extension(".log");
}

} // namespace Vard
