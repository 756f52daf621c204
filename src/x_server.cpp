// What must be true of a display before its X server starts, and the server's command line.
#include "x_server.h"

#include "file_descriptor.h"
#include "logger.h"
#include "sockets.h"
#include "utils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace fs = std::filesystem;

namespace Vard {

namespace {

const std::list<std::string> builtInArguments{
    ":%{display}", "-nolisten",  "tcp",    "-logfile",   "/dev/null",  "-auth",      "%{authfile}",
    "-config",     "vard.conf",  "-depth", "%{depth}",   "+extension", "DAMAGE",     "+extension",
    "MIT-SHM",     "+extension", "RANDR",  "+extension", "XFIXES",     "+extension", "XTEST"};

std::string fill(std::string word, unsigned display, unsigned depth, unsigned width, unsigned height,
                 const fs::path& authfile) {
    word = Utils::stringReplace(word, "%{display}", std::to_string(display));
    word = Utils::stringReplace(word, "%{depth}", std::to_string(depth));
    word = Utils::stringReplace(word, "%{width}", std::to_string(width));
    word = Utils::stringReplace(word, "%{height}", std::to_string(height));
    return Utils::stringReplace(word, "%{authfile}", authfile.string());
}

/// Removes a file of a dead server, if it is there; a link itself, never what it points to. False when it stays. A
/// directory, which a user may have put there to take the display from everybody, is moved aside with all that is in
/// it.
bool removeLeftover(const fs::path& path) {
    if (::unlink(path.c_str()) == 0 || errno == ENOENT) {
        return true;
    }
    std::string aside = path.string() + ".XXXXXX";
    if (errno != EISDIR || ::mkdtemp(aside.data()) == nullptr) {
        return false;
    }
    const bool moved = ::rename(path.c_str(), aside.c_str()) == 0;
    if (!moved) {
        ::rmdir(aside.c_str());
    }
    return moved;
}

} // namespace

unsigned validDepth(unsigned char depth) {
    if (depth == 16 || depth == 24) {
        return depth;
    }
    Syslog::warning("%s: unknown depth: %u", "runXvfbDisplay", depth);
    return 24;
}

std::list<std::string> serverArguments(const std::list<std::string>& templates, unsigned display, unsigned depth,
                                       unsigned short width, unsigned short height, const fs::path& authfile) {
    std::list<std::string> args;
    for (const auto& word : templates.empty() ? builtInArguments : templates) {
        args.push_back(fill(word, display, depth, width, height, authfile));
    }
    return args;
}

// A server of another user would refuse to start over a lock file that it may not remove, and would share a name with
// whoever holds the abstract socket; so both count.
std::string clearDisplay(unsigned display, const fs::path& socket) {
    if (Socket::probeUnix(socket.string()) == Socket::Probe::Live ||
        Socket::probeUnix(socket.string(), true) == Socket::Probe::Live) {
        return "somebody answers on: " + socket.string();
    }
    // The compiled keymap too: a server that may not replace another user's does not start.
    const std::string number = std::to_string(display);
    for (const fs::path& path :
         {socket, fs::path("/tmp/.X" + number + "-lock"), fs::path("/tmp/server-" + number + ".xkm")}) {
        if (!removeLeftover(path)) {
            return "leftover cannot be removed: " + path.string();
        }
    }
    return {};
}

bool claimDisplay(unsigned display, const fs::path& socket) {
    const std::string obstacle = clearDisplay(display, socket);
    if (!obstacle.empty()) {
        Syslog::warning("%s: display passed over: %u, %s", "startSession", display, obstacle.c_str());
    }
    return obstacle.empty();
}

} // namespace Vard
