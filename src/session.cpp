// The record of one session, and its destruction.
#include "session.h"

#include "logger.h"

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

// The server and the supervisor take their time, and hold the home until they have gone.
Session::~Session() {
    endChildren();
    xauthfile.remove();
    profile.leave({state_.pid1, state_.pid2}, uid);
    xcb.reset();
    pam.reset();
}

// Whoever waits for the children reaps them.
void Session::endChildren() {
    const std::scoped_lock guard(lock);
    notices.end();
    attempts.end();
    tellToEnd(state_.pid3, "connector");
    tellToEnd(state_.pid2, "xsession");
    tellToEnd(state_.pid1, "xvfb");
}

std::list<std::string> Session::environments() const {
    std::list<std::string> result{"DISPLAY=:" + std::to_string(display), "XAUTHORITY=" + xauthfile.path().string(),
                                  "XDG_RUNTIME_DIR=" + runtimedir.string()};
    if (pam) {
        auto others = pam->getEnvironments();
        others.remove_if([&](const std::string& entry) { return isNamedIn(result, entry); });
        result.splice(result.end(), others);
    }
    return result;
}

std::filesystem::path Session::commandLog() const {
    return home / ".vard" / xauthfile.path().filename().replace_extension(".log");
}

} // namespace Vard
