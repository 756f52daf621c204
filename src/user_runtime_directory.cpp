// Directories that root makes on a path that users may reach.
#include "user_runtime_directory.h"

#include "logger.h"
#include "trusted_path.h"
#include "user_database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace fs = std::filesystem;

namespace Vard {

namespace {

constexpr mode_t parentMode = 0755;
constexpr mode_t ownMode = 0700;

// What root made is the administrator's choice. Another user would own what the session trusts.
bool trusted(const FileDescriptor& directory, const std::string& user) {
    struct stat info {};
    return ::fstat(directory.get(), &info) == 0 && (info.st_uid == 0 || info.st_uid == Utils::getUserUid(user));
}

} // namespace

UserRuntimeDirectory::UserRuntimeDirectory(const fs::path& path, const std::string& user) {
    const auto makeMissing = [&](int parent, const std::string& name, bool last) {
        return last ? make(parent, name, ownMode, user) : make(parent, name, parentMode, "");
    };
    const FileDescriptor directory = walkTo(path, LastLink::refused, makeMissing);
    if (!directory) {
        Syslog::error("%s: create xdg directory failed, path: %s", "startSession", path.c_str());
        return;
    }
    valid_ = trusted(directory, user);
    if (!valid_) {
        Syslog::error("%s: xdg directory of another user refused, path: %s", "startSession", path.c_str());
    }
}

UserRuntimeDirectory::~UserRuntimeDirectory() {
    for (; !made_.empty(); made_.pop_back()) {
        ::unlinkat(made_.back().parent.get(), made_.back().name.c_str(), AT_REMOVEDIR);
    }
}

// Somebody else may make it at the same moment: then it is found, and not ours to remove.
bool UserRuntimeDirectory::make(int parent, const std::string& name, mode_t mode, const std::string& owner) {
    FileDescriptor kept(::fcntl(parent, F_DUPFD_CLOEXEC, 0));
    if (!kept || ::mkdirat(parent, name.c_str(), mode) != 0) {
        return kept && errno == EEXIST;
    }
    made_.push_back({std::move(kept), name});
    const FileDescriptor own(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!own || ::fchmod(own.get(), mode) != 0) { // the process's umask has no say here
        return false;
    }
    if (!owner.empty()) {
        Utils::setOwner(own.get(), owner, "");
    }
    return true;
}

} // namespace Vard
