// The service's own directory under /run, with its pid file.
#include "service_runtime_directory.h"

#include "display.h"
#include "exceptions.h"
#include "logger.h"
#include "socket_nest.h"
#include "x_server.h"

#include <unistd.h>

#include <fstream>
#include <utility>

namespace fs = std::filesystem;

namespace Vard {

namespace {

constexpr const char* pidFile = "vard_service.pid";

// An instance that was killed left nests, sockets and locks of servers that have gone.
void clearDisplays(const JsonConfig& settings, const DisplayRange& range) {
    SocketNest::removeStale(displaySocket(settings, 0));
    for (size_t slot = 0; slot < range.count; ++slot) {
        const auto display = static_cast<uint32_t>(static_cast<size_t>(range.first) + slot);
        clearDeadDisplay(display, displaySocket(settings, display));
    }
}

} // namespace

ServiceRuntimeDirectory::ServiceRuntimeDirectory(const JsonConfig& settings, const DisplayRange& range)
    : path_(settings.setting(Settings::runtimeDir)) {
    create();
    removeStaleCookies();
    clearDisplays(settings, range);
    writePidFile();
}

void ServiceRuntimeDirectory::create() const {
    std::error_code failed;
    if (!fs::exists(path_, failed) && !fs::create_directory(path_, failed)) {
        Syslog::error("%s: create runtime directory failed, path: %s", "DBusService", path_.c_str());
        throw vard_error("runtime directory failed");
    }
    fs::permissions(path_, static_cast<fs::perms>(0755), fs::perm_options::replace, failed);
}

void ServiceRuntimeDirectory::removeStaleCookies() const {
    std::error_code failed;
    for (fs::directory_iterator it(path_, failed), end; !failed && it != end; it.increment(failed)) {
        if (it->path().filename().native().starts_with("xauth_")) {
            std::error_code ignored;
            fs::remove(it->path(), ignored);
        }
    }
}

void ServiceRuntimeDirectory::writePidFile() {
    std::ofstream file(path_ / pidFile, std::ios::trunc);
    if (file) {
        hasPidFile_ = true;
        file << ::getpid();
    }
}

// Once: another instance may have written its own since.
void ServiceRuntimeDirectory::removePidFile() noexcept {
    std::error_code ignored;
    if (std::exchange(hasPidFile_, false)) {
        fs::remove(path_ / pidFile, ignored);
    }
}

} // namespace Vard
