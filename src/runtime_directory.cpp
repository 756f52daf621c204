// Directories that root makes on a path that users may reach.
#include "runtime_directory.h"

#include "logger.h"
#include "user_database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

namespace fs = std::filesystem;

namespace Vard {

namespace {

constexpr mode_t parentMode = 0755;
constexpr mode_t ownMode = 0700;

std::vector<std::string> components(const fs::path& path) {
    std::vector<std::string> names;
    for (const auto& name : path.lexically_normal().relative_path()) {
        if (!name.empty()) { // a trailing slash
            names.push_back(name.string());
        }
    }
    return names;
}

} // namespace

RuntimeDirectory::RuntimeDirectory(const fs::path& path, const std::string& user) {
    std::error_code ignored;
    valid_ = fs::is_directory(path, ignored) || create(path, user);
    if (!valid_) {
        Syslog::error("%s: create xdg directory failed, path: %s", "startSession", path.c_str());
    }
}

RuntimeDirectory::~RuntimeDirectory() {
    for (; !made_.empty(); made_.pop_back()) {
        ::unlinkat(made_.back().parent.get(), made_.back().name.c_str(), AT_REMOVEDIR);
    }
}

bool RuntimeDirectory::create(const fs::path& path, const std::string& user) {
    auto names = components(path);
    if (!path.is_absolute() || names.empty()) {
        return false;
    }
    const std::string own = std::move(names.back());
    names.pop_back();
    FileDescriptor at(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (const auto& parent : names) {
        at = enter(std::move(at), parent, parentMode);
    }
    const size_t before = made_.size();
    at = enter(std::move(at), own, ownMode);
    if (at && made_.size() > before) {
        Utils::setOwner(at.get(), user, "");
    }
    return static_cast<bool>(at);
}

// One step down, making the directory when it is missing; no link is followed. None when `at` is none.
FileDescriptor RuntimeDirectory::enter(FileDescriptor at, const std::string& name, mode_t mode) {
    const bool made = ::mkdirat(at.get(), name.c_str(), mode) == 0;
    FileDescriptor next(::openat(at.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (made) {
        made_.push_back({std::move(at), name});
    }
    if (made && next && ::fchmod(next.get(), mode) != 0) { // the process's umask has no say here
        next.reset();
    }
    return next;
}

} // namespace Vard
