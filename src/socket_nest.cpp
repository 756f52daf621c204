// Where an X server makes its socket while nobody else may reach it.
#include "socket_nest.h"

#include "file_descriptor.h"
#include "logger.h"

#include <fcntl.h>
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
constexpr const char* secondName = "s";
constexpr mode_t socketsMode = 01777; // what a server expects of the directory

// Nobody but root renames what is made there.
bool isTrusted(const fs::path& directory) {
    struct stat info {};
    return ::lstat(directory.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == 0 &&
           ((info.st_mode & S_ISVTX) != 0 || (info.st_mode & (S_IWGRP | S_IWOTH)) == 0);
}

// The server's user reaches what is in there through the server: a directory becomes root's alone before it is read, so
// that it does not grow meanwhile, and the directories in it go up, so that no depth is too much.
void empty(const FileDescriptor& nest, const char* name, unsigned& moved) {
    const FileDescriptor directory(::openat(nest.get(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!directory || ::fchown(directory.get(), 0, 0) != 0 || ::fchmod(directory.get(), 0700) != 0) {
        return;
    }
    std::error_code ignored;
    const fs::path entries = "/proc/self/fd/" + std::to_string(directory.get());
    for (fs::directory_iterator it(entries, ignored), end; !ignored && it != end; it.increment(ignored)) {
        const std::string entry = it->path().filename();
        if (::unlinkat(directory.get(), entry.c_str(), 0) != 0 && errno == EISDIR) {
            ::renameat(directory.get(), entry.c_str(), nest.get(), ("m" + std::to_string(moved++)).c_str());
        }
    }
}

// True when a directory has gone: another may have come up from it.
bool removeOnce(const FileDescriptor& nest, unsigned& moved) {
    bool gone = false;
    std::error_code ignored;
    const fs::path entries = "/proc/self/fd/" + std::to_string(nest.get());
    for (fs::directory_iterator it(entries, ignored), end; !ignored && it != end; it.increment(ignored)) {
        const std::string entry = it->path().filename();
        if (::unlinkat(nest.get(), entry.c_str(), 0) != 0 && errno == EISDIR) {
            empty(nest, entry.c_str(), moved);
            gone = ::unlinkat(nest.get(), entry.c_str(), AT_REMOVEDIR) == 0 || gone;
        }
    }
    return gone;
}

void removeNest(const fs::path& outer) {
    {
        const FileDescriptor nest(::open(outer.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        unsigned moved = 0;
        while (nest && removeOnce(nest, moved)) {
        }
    }
    ::rmdir(outer.c_str());
}

} // namespace

SocketNest::SocketNest(fs::path socket) : socket_(std::move(socket)) {
    if (!isTrusted(usual())) {
        Syslog::error("%s: not root's alone to rename in: %s", "SocketNest", usual().c_str());
        return;
    }
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
    if (!valid()) {
        return;
    }
    // What the service and the server made goes without a descriptor, which may be what the machine has no more of.
    ::unlink((outer_ / secondName).c_str());
    ::unlink(socket().c_str());
    if (::rmdir(directory().c_str()) != 0 || ::rmdir(outer_.c_str()) != 0) {
        removeNest(outer_);
    }
}

bool SocketNest::publish() const {
    const fs::path second = outer_ / secondName; // the server's own name for it stays
    ::unlink(second.c_str()); // from a first try
    ::chmod(directory().c_str(), 0755); // the server has made what it makes there, and looks for it at a reset
    if (::link(socket().c_str(), second.c_str()) != 0 || ::rename(second.c_str(), socket_.c_str()) != 0) {
        Utils::syslogErrno("SocketNest", "rename", errno);
        return false;
    }
    return true;
}

void SocketNest::removeStale(const fs::path& socket) {
    std::error_code ignored;
    if (!isTrusted(socket.parent_path())) {
        return;
    }
    for (fs::directory_iterator it(socket.parent_path(), ignored), end; !ignored && it != end; it.increment(ignored)) {
        struct stat info {};
        if (it->path().filename().native().starts_with(nestName) && ::lstat(it->path().c_str(), &info) == 0 &&
            S_ISDIR(info.st_mode) && info.st_uid == 0) {
            removeNest(it->path());
        }
    }
}

} // namespace Vard
