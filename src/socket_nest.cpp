// Where an X server makes its socket while nobody else may reach it.
#include "socket_nest.h"

#include "logger.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace Vard {

namespace {

constexpr const char* nestName = ".vard-";
constexpr mode_t socketsMode = 01777; // what a server expects of the directory

// Only what lies directly in it: a server makes nothing else, and root walks into nothing that a user may have made.
void removeNest(const fs::path& outer) {
    std::error_code ignored;
    for (const fs::path& directory : {outer / "d", outer}) {
        for (fs::directory_iterator it(directory, ignored), end; !ignored && it != end; it.increment(ignored)) {
            ::unlink(it->path().c_str());
        }
        ::rmdir(directory.c_str());
    }
}

} // namespace

SocketNest::SocketNest(fs::path socket) : socket_(std::move(socket)) {
    std::string outer = usual() / (std::string(nestName) + "XXXXXX");
    if (::mkdtemp(outer.data()) == nullptr) {
        Utils::syslogErrno("SocketNest", "mkdtemp", errno);
        return;
    }
    outer_ = outer;
    if (::mkdir(directory().c_str(), 0700) != 0 || ::chmod(directory().c_str(), socketsMode) != 0) {
        Utils::syslogErrno("SocketNest", "mkdir", errno);
        removeNest(std::exchange(outer_, {}));
    }
}

SocketNest::~SocketNest() {
    if (valid()) {
        removeNest(outer_);
    }
}

bool SocketNest::publish() const {
    const fs::path second = outer_ / "s"; // the server's own name for it stays
    if (::link(socket().c_str(), second.c_str()) != 0 || ::rename(second.c_str(), socket_.c_str()) != 0) {
        Utils::syslogErrno("SocketNest", "rename", errno);
        return false;
    }
    return true;
}

void SocketNest::removeStale(const fs::path& socket) {
    std::error_code ignored;
    for (fs::directory_iterator it(socket.parent_path(), ignored), end; !ignored && it != end; it.increment(ignored)) {
        struct stat info {};
        if (it->path().filename().native().starts_with(nestName) && ::lstat(it->path().c_str(), &info) == 0 &&
            S_ISDIR(info.st_mode) && info.st_uid == 0) {
            removeNest(it->path());
        }
    }
}

} // namespace Vard
