// Whether root alone can change a file.
#include "trust.h"

#include <pwd.h>
#include <sys/stat.h>

#include <list>

namespace fs = std::filesystem;

namespace Vardctl {

namespace {

constexpr int mostLinks = 40; // as many as the kernel follows

std::string flawOf(const fs::path& path, const struct stat& info) {
    if (info.st_uid != 0) {
        return path.string() + " belongs to " + userName(info.st_uid);
    }
    const bool othersKeepOut = S_ISLNK(info.st_mode) || (S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX) != 0);
    if (othersKeepOut || (info.st_mode & (S_IWGRP | S_IWOTH)) == 0) {
        return "";
    }
    return path.string() +
           ((info.st_mode & S_IWOTH) != 0 ? " can be written by everybody" : " can be written by its group");
}

void prepend(std::list<fs::path>& names, const fs::path& path) {
    const auto relative = path.relative_path();
    names.insert(names.begin(), relative.begin(), relative.end());
}

} // namespace

std::string whoElseWrites(const fs::path& path) {
    std::list<fs::path> names;
    prepend(names, path);
    fs::path at = "/";
    for (int links = 0; !names.empty();) {
        const fs::path name = names.front();
        names.pop_front();
        const fs::path next = name == ".." ? at.parent_path() : at / name;
        struct stat info {};
        if (name == "." || name.empty() || ::lstat(next.c_str(), &info) != 0) {
            continue;
        }
        if (auto flaw = flawOf(next, info); !flaw.empty()) {
            return flaw;
        }
        std::error_code failed;
        const auto target = S_ISLNK(info.st_mode) ? fs::read_symlink(next, failed) : fs::path();
        if (target.empty()) {
            at = next;
        } else if (++links > mostLinks) {
            return next.string() + " is one of too many links";
        } else {
            prepend(names, target);
            at = target.is_absolute() ? "/" : at;
        }
    }
    return "";
}

std::string userName(uid_t uid) {
    const auto* entry = ::getpwuid(uid);
    return entry != nullptr ? entry->pw_name : std::to_string(uid);
}

} // namespace Vardctl
