// Paths that users may reach, walked by root.
#include "trusted_path.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <list>
#include <optional>

namespace fs = std::filesystem;

namespace Vard {

namespace {

constexpr int mostLinks = 40; // as many as the kernel follows

FileDescriptor root() { return FileDescriptor(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)); }

FileDescriptor openDirectory(int parent, const std::string& name) {
    return FileDescriptor(::openat(parent, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

void prepend(std::list<std::string>& names, const fs::path& path) {
    std::list<std::string> first;
    for (const auto& name : path.relative_path()) {
        if (!name.empty() && name != ".") { // a trailing slash
            first.push_back(name.string());
        }
    }
    names.splice(names.begin(), first);
}

bool onlyRootWrites(int directory) {
    struct stat info {};
    return ::fstat(directory, &info) == 0 && info.st_uid == 0 && (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Where a link may be followed to; none, with errno set, for any other link and for what is none.
std::optional<fs::path> linkTarget(int parent, const std::string& name) {
    const FileDescriptor link(::openat(parent, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!link || ::fstat(link.get(), &info) != 0) {
        return std::nullopt;
    }
    if (!S_ISLNK(info.st_mode) || info.st_uid != 0 || !onlyRootWrites(parent)) {
        errno = S_ISLNK(info.st_mode) ? ELOOP : ENOTDIR;
        return std::nullopt;
    }
    std::array<char, PATH_MAX> target{};
    const ssize_t length = ::readlinkat(link.get(), "", target.data(), target.size());
    return length > 0 ? std::optional<fs::path>(std::string(target.data(), static_cast<size_t>(length))) : std::nullopt;
}

/// The way still to go, and where it has come to.
class Walk {
public:
    Walk(const fs::path& path, LastLink last) : last_(last), at_(root()) { prepend(names_, path.lexically_normal()); }

    FileDescriptor toEnd(const MakeMissing& make) {
        while (at_ && !names_.empty()) {
            const std::string name = std::move(names_.front());
            names_.pop_front();
            FileDescriptor next = openDirectory(at_.get(), name);
            if (!next && errno == ENOENT && make && make(at_.get(), name, names_.empty())) {
                next = openDirectory(at_.get(), name);
            }
            if (next || errno != ENOTDIR) {
                at_ = std::move(next);
            } else {
                follow(name);
            }
        }
        return std::move(at_);
    }

private:
    void follow(const std::string& name) {
        const bool refused = (names_.empty() && last_ == LastLink::refused) || ++links_ > mostLinks;
        const auto target = refused ? std::nullopt : linkTarget(at_.get(), name);
        if (!target) {
            const int code = refused ? ELOOP : errno;
            at_.reset();
            errno = code;
            return;
        }
        prepend(names_, *target);
        if (target->is_absolute()) {
            at_ = root();
        }
    }

    LastLink last_;
    std::list<std::string> names_;
    FileDescriptor at_;
    int links_ = 0;
};

} // namespace

FileDescriptor walkTo(const fs::path& path, LastLink last, const MakeMissing& make) {
    if (!path.is_absolute()) {
        errno = ENOENT;
        return {};
    }
    return Walk(path, last).toEnd(make);
}

} // namespace Vard
