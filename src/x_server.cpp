// What must be true of a display before its X server starts.
#include "x_server.h"

#include "deadline.h"
#include "local_socket.h"
#include "logger.h"
#include "small_file.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace Vard {

using namespace std::chrono_literals;

namespace {

/// Who made what stands at the path, a link itself, not what it points to; none when nothing does. Whatever cannot be
/// looked at, such as a file system that a user has mounted there, is nobody's.
std::optional<uid_t> ownerOf(const fs::path& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
        return errno == ENOENT ? std::nullopt : std::optional(unknownUid);
    }
    return info.st_uid;
}

fs::path lockFile(unsigned display) { return "/tmp/.X" + std::to_string(display) + "-lock"; }

/// Where a server of the display makes files. The last is a keymap, which is no sign of a server.
std::vector<fs::path> placesOf(unsigned display, const fs::path& socket) {
    const std::string number = std::to_string(display);
    return {socket, lockFile(display), "/tmp/.tX" + number + "-lock", "/tmp/server-" + number + ".xkm"};
}

// A directory goes aside with all that a user has put into it.
bool moveAside(const fs::path& path) {
    std::string aside = path.string() + ".XXXXXX";
    if (::mkdtemp(aside.data()) == nullptr) {
        return false;
    }
    const bool moved = ::rename(path.c_str(), aside.c_str()) == 0;
    if (!moved) {
        ::rmdir(aside.c_str());
    }
    return moved;
}

/// True when the process that wrote its number into the lock file is there.
bool lockHeld(const fs::path& path) {
    const pid_t pid = std::atoi(Utils::readSmallFile(path).c_str());
    return pid > 0 && ::kill(pid, 0) == 0;
}

bool rootsServerRuns(const fs::path& path) {
    return Socket::probeUnix(path.string()) == Socket::Probe::Live || lockHeld(path);
}

} // namespace

bool removeObject(const fs::path& path) {
    ::umount2(path.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW); // users can mount on what is theirs
    if (::unlink(path.c_str()) == 0 || errno == ENOENT) {
        return true;
    }
    return errno == EISDIR && (::rmdir(path.c_str()) == 0 || moveAside(path));
}

bool removeForeign(unsigned display, const fs::path& path, uid_t user) {
    const auto owner = ownerOf(path);
    if (!owner || !removeObject(path)) {
        return false;
    }
    if (*owner != user || *owner == unknownUid) {
        Syslog::notice("%s: removed from display: %u, path: %s, uid: %u", "clearDisplay", display, path.c_str(),
                       *owner);
    }
    return true;
}

// A server that may not replace another user's file does not start; so the keymap counts too.
std::string clearDisplay(unsigned display, const fs::path& socket, uid_t user) {
    for (const fs::path& path : placesOf(display, socket)) {
        const auto owner = ownerOf(path);
        if (!owner) {
            continue;
        }
        if (*owner == 0 && rootsServerRuns(path)) {
            return "root's server is there: " + path.string();
        }
        if (!removeForeign(display, path, user) && ownerOf(path)) {
            return "leftover cannot be removed: " + path.string();
        }
    }
    return {};
}

void clearDeadDisplay(unsigned display, const fs::path& socket) {
    const auto probe = Socket::probeUnix(socket.string());
    const fs::path lock = lockFile(display);
    if (probe == Socket::Probe::Dead || (probe == Socket::Probe::Absent && ownerOf(lock) && !lockHeld(lock))) {
        clearDisplay(display, socket);
    }
}

bool isDisturbed(unsigned display, const fs::path& socket, uid_t user) {
    return std::ranges::any_of(placesOf(display, socket),
                               [user](const fs::path& path) { return ownerOf(path).value_or(user) != user; });
}

bool wasDisturbed(unsigned display, const fs::path& socket, uid_t user) {
    const auto end = Deadline::in(100ms);
    while (!isDisturbed(display, socket, user)) {
        if (end.passed()) {
            return false;
        }
        std::this_thread::sleep_for(100us);
    }
    return true;
}

} // namespace Vard
