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

// The directory itself; a slash at the end would let a link through.
FileDescriptor openDirectory(const fs::path& path) {
    const fs::path plain = path.lexically_normal();
    const fs::path named = plain.has_filename() ? plain : plain.parent_path();
    return FileDescriptor(::open(named.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// What root made is the administrator's choice. Another user would own what the session trusts.
bool trusted(const FileDescriptor& directory, const std::string& user) {
    struct stat info {};
    return ::fstat(directory.get(), &info) == 0 && (info.st_uid == 0 || info.st_uid == Utils::getUserUid(user));
}

} // namespace

RuntimeDirectory::RuntimeDirectory(const fs::path& path, const std::string& user) {
    FileDescriptor directory = openDirectory(path);
    if (!directory) {
        directory = create(path, user);
    }
    if (!directory) {
        Syslog::error("%s: create xdg directory failed, path: %s", "startSession", path.c_str());
        return;
    }
    valid_ = trusted(directory, user);
    if (!valid_) {
        Syslog::error("%s: xdg directory of another user refused, path: %s", "startSession", path.c_str());
    }
}

RuntimeDirectory::~RuntimeDirectory() {
    for (; !made_.empty(); made_.pop_back()) {
        ::unlinkat(made_.back().parent.get(), made_.back().name.c_str(), AT_REMOVEDIR);
    }
}

FileDescriptor RuntimeDirectory::create(const fs::path& path, const std::string& user) {
    auto names = components(path);
    if (!path.is_absolute() || names.empty()) {
        return {};
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
    return at;
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
