// The variables that every program of a session gets.
#include "session_environment.h"

#include <sys/stat.h>

namespace Vard {

namespace {

// The socket is in a directory of the user's: only what is a socket of his own is told to his programs.
std::list<std::string> busAddress(const Session& session) {
    const auto path = session.runtimedir / "bus";
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0 || !S_ISSOCK(info.st_mode) || info.st_uid != session.uid) {
        return {};
    }
    return {"DBUS_SESSION_BUS_ADDRESS=unix:path=" + path.string()};
}

} // namespace

std::list<std::string> sessionEnvironment(const Session& session) {
    auto environment = busAddress(session);
    environment.splice(environment.end(), session.environments());
    return environment;
}

} // namespace Vard
