// A trial of the X server.
#include "trial_server.h"

#include "deadline.h"
#include "display_range.h"
#include "program_run.h"
#include "random_bytes.h"
#include "server_arguments.h"
#include "small_file.h"
#include "text.h"
#include "xauthority.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace fs = std::filesystem;

namespace Vardctl {

namespace {

using Vard::Deadline;
using Vard::FileDescriptor;
using namespace std::chrono_literals;
namespace Settings = Vard::Settings;

constexpr auto serverLimit = 15s;
constexpr auto lookPause = 20ms;
constexpr size_t cookieSize = 32;

/// What a server is started with, all of it in this process's own /tmp.
struct Place {
    unsigned display = 0;
    fs::path socket;
    fs::path authority = "/tmp/authority";
    std::vector<uint8_t> cookie = Vard::Utils::randomBytes(cookieSize);
    uid_t user = strangerId();
};

struct LocalAddress {
    sockaddr_un address{};
    socklen_t size = 0;
};

/// None for a name that is too long. One that begins with a zero byte is abstract.
std::optional<LocalAddress> addressOf(const std::string& name) {
    LocalAddress local;
    local.address.sun_family = AF_UNIX;
    if (name.size() >= sizeof local.address.sun_path) {
        return std::nullopt;
    }
    name.copy(local.address.sun_path, name.size());
    local.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size() + (name[0] == '\0' ? 0 : 1));
    return local;
}

// A server does not start when somebody listens on its display's abstract name, which every user of the network may do.
bool nameFree(unsigned display) {
    const auto local = addressOf('\0' + std::string("/tmp/.X11-unix/X") + std::to_string(display));
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&local->address), local->size) == 0; // NOLINT
}

/// A display above the range that is the service's, or below it; none when the nearest three are taken.
std::optional<unsigned> freeDisplay(const Vard::JsonConfig& settings) {
    constexpr unsigned tries = 3;
    const auto range = Vard::DisplayRange::configured(settings);
    const auto above = static_cast<unsigned>(range.first) + static_cast<unsigned>(range.count);
    const bool room = above + tries <= Vard::lastDisplay + 1;
    const unsigned first = room ? above : static_cast<unsigned>(std::max(range.first, int{tries})) - tries;
    for (unsigned display = first; display < first + tries; ++display) {
        if (nameFree(display)) {
            return display;
        }
    }
    return std::nullopt;
}

bool coverWithEmpty(const fs::path& directory) {
    return ::mount("tmpfs", directory.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777,size=64m") == 0;
}

/// Why this process cannot have a /tmp and a network of its own; empty when it has.
std::string enterOwnTmp(bool ownNetwork) {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        !coverWithEmpty("/tmp")) {
        return std::string("no mount namespace of its own: ") + std::strerror(errno);
    }
    if (ownNetwork) {
        ::unshare(CLONE_NEWNET); // the look at the namespaces tells when there is none
    }
    return "";
}

// In the own /tmp there is nothing of anybody's yet.
bool makeInTmp(const fs::path& directory) {
    std::error_code failed;
    fs::create_directories(directory, failed);
    const FileDescriptor made(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return made && ::fchmod(made.get(), 01777) == 0;
}

/// Makes the directory of a socket where nobody else sees it: in the own /tmp, or covered. Nothing else may change.
bool makeRoom(const fs::path& directory) {
    const auto first = *directory.relative_path().begin();
    return first == "tmp" ? makeInTmp(directory) : coverWithEmpty(directory);
}

/// What is wrong with a path for the sockets; empty for nothing.
std::string flawOf(const fs::path& socket) {
    if (!socket.is_absolute() || !socket.lexically_normal().parent_path().has_relative_path()) {
        return "is no absolute path in a directory";
    }
    return std::ranges::find(socket, "..") != socket.end() ? "has `..' in it" : "";
}

void writeAuthority(const Place& place) {
    const auto record = Vard::xauthorityRecord(Vard::Utils::getHostname(), place.display, place.cookie);
    const FileDescriptor file(::open(place.authority.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0400));
    const std::string_view bytes{reinterpret_cast<const char*>(record.data()), record.size()};
    if (!Vard::Utils::writeAll(file.get(), bytes) || ::fchown(file.get(), place.user, place.user) != 0) {
        throw std::runtime_error("the cookie cannot be written");
    }
}

std::vector<std::string> commandFor(const Vard::JsonConfig& settings, const Place& place) {
    std::vector<std::string> command{settings.setting(Settings::serverPath)};
    std::ranges::copy(
        Vard::serverArguments(settings.setting(Settings::serverArgs), place.display, 24, 1280, 1024, place.authority),
        std::back_inserter(command));
    return command;
}

FileDescriptor connectTo(const fs::path& socket) {
    const auto local = addressOf(socket.native());
    FileDescriptor connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const bool connected = local && ::connect(connection.get(), reinterpret_cast<const sockaddr*>(&local->address),
                                              local->size) == 0; // NOLINT
    return connected ? std::move(connection) : FileDescriptor{};
}

// The first request of every client: little-endian, protocol 11, with a cookie, padded to fours.
std::string firstRequest(const std::vector<uint8_t>& cookie) {
    std::string name = "MIT-MAGIC-COOKIE-1";
    std::string request{'l', 0, 11, 0, 0, 0};
    for (const size_t size : {name.size(), cookie.size(), size_t{0}}) {
        request += {static_cast<char>(size), 0};
    }
    name.resize((name.size() + 3) / 4 * 4);
    return request + name + std::string(cookie.begin(), cookie.end());
}

/// Asks a server that listens; its answer's first byte, which is 1 for a client that is let in. None before an answer.
std::optional<char> ask(const FileDescriptor& connection, const Place& place) {
    Vard::Utils::writeAll(connection.get(), firstRequest(place.cookie));
    pollfd entry{connection.get(), POLLIN, 0};
    char answer = 0;
    const int patience = static_cast<int>(std::chrono::milliseconds(2s).count());
    return ::poll(&entry, 1, patience) == 1 && ::read(connection.get(), &answer, 1) == 1 ? std::optional(answer)
                                                                                         : std::nullopt;
}

/// The line of a server's last words that says why: where its configuration is wrong, or what was fatal.
std::string reasonIn(const std::string& words) {
    constexpr std::string_view fatal = "Fatal server error:\n";
    auto begin = words.find("Parse error");
    if (begin == std::string::npos) {
        const auto mark = words.find(fatal);
        begin = mark == std::string::npos ? 0 : mark + fatal.size();
    }
    return words.substr(begin, words.find('\n', begin) - begin);
}

Trial watch(RunningProgram& server, const Place& place) {
    const auto begin = Deadline::Clock::now();
    const Deadline end = begin + serverLimit;
    Trial trial;
    for (trial.problem = "it opens no socket " + place.socket.string(); !end.passed();) {
        if (server.endedBy(Deadline::in(lookPause))) {
            trial.problem = "it has ended, " + server.end() + ": " + reasonIn(server.output());
            break;
        }
        if (const auto connection = connectTo(place.socket)) {
            trial.problem = "it does not answer";
            if (const auto answer = ask(connection, place)) {
                trial.answered = *answer == 1;
                trial.problem = "it refuses the cookie";
                break;
            }
        }
    }
    trial.took = std::chrono::duration_cast<std::chrono::milliseconds>(Deadline::Clock::now() - begin);
    return trial;
}

} // namespace

Trial tryServer(const Vard::JsonConfig& settings) {
    const auto impossible = [](const std::string& obstacle) { return Trial{false, obstacle, {}, false}; };
    const fs::path configured = settings.setting(Settings::serverSocket);
    if (const auto flaw = flawOf(configured); !flaw.empty()) {
        return impossible("xvfb:sock " + flaw);
    }
    if (const auto obstacle = enterOwnTmp(settings.setting(Settings::serverIsolated)); !obstacle.empty()) {
        return impossible(obstacle);
    }
    const auto display = freeDisplay(settings);
    if (!display) {
        return impossible("somebody else has the displays next to the service's");
    }
    Place place;
    place.display = *display;
    place.socket = fs::path(Vard::Utils::stringReplace(configured.native(), "%{display}", std::to_string(*display)))
                       .lexically_normal();
    if (!makeRoom(place.socket.parent_path())) {
        return impossible("no directory for the socket: " + place.socket.parent_path().string());
    }
    writeAuthority(place);
    RunningProgram server(commandFor(settings, place), place.user);
    return watch(server, place);
}

} // namespace Vardctl
