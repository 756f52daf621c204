// Directories that root makes on a path that users may reach.
#include "runtime_directory.h"

#include "file_descriptor.h"
#include "logger.h"
#include "user_database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace Vard {

namespace {

constexpr mode_t parentMode = 0755;
constexpr mode_t ownMode = 0700;

/// One step down from `at`, making the directory when it is missing; no link is followed. `made` tells whether it was.
FileDescriptor enter(int at, const std::string& name, mode_t mode, bool& made) {
    made = ::mkdirat(at, name.c_str(), mode) == 0;
    if (!made && errno != EEXIST) {
        return {};
    }
    FileDescriptor next(::openat(at, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (made && next && ::fchmod(next.get(), mode) != 0) { // the process's umask has no say here
        return {};
    }
    return next;
}

} // namespace

RuntimeDirectory::RuntimeDirectory(const std::filesystem::path& path, const std::string& user) : path_(path) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        valid_ = true;
        return;
    }
    FileDescriptor at(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const auto relative = path.lexically_normal().relative_path();
    for (auto it = relative.begin(); at && it != relative.end(); ++it) {
        if (it->empty()) {
            continue; // a trailing slash
        }
        const bool last = std::next(it) == relative.end() || std::next(it)->empty();
        bool made = false;
        at = enter(at.get(), *it, last ? ownMode : parentMode, made);
        created_ = last && made;
    }
    if (at && created_) {
        Utils::setOwner(at.get(), user, "");
    }
    valid_ = static_cast<bool>(at) && !relative.empty();
    if (!valid_) {
        Syslog::error("%s: create xdg directory failed, path: %s", "startSession", path.c_str());
    }
}

RuntimeDirectory::~RuntimeDirectory() {
    if (created_) {
        ::rmdir(path_.c_str()); // stays when something was put into it meanwhile
    }
}

} // namespace Vard
