// Directories that root makes on a path that users may reach.
#pragma once

#include "file_descriptor.h"

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace Vard {

/// A user's runtime directory during a session start. What this start created, missing parents included, is removed
/// again unless keep() is called.
class UserRuntimeDirectory {
public:
    /// Makes sure the directory exists: an existing one is left as it is, but refused when it is a link or another
    /// user's (neither `user`'s nor root's); a missing one is created with its parents (0755) and itself exactly 0700,
    /// owned by `user`. The path is absolute; on the way to it no link is followed but root's own (see walkTo). Logs
    /// "%s: create xdg directory failed, path: %s" or "%s: xdg directory of another user refused, path: %s" under
    /// "startSession" on failure; valid() is false then.
    UserRuntimeDirectory(const std::filesystem::path& path, const std::string& user);
    /// Removes what was created, as far as it is still empty.
    ~UserRuntimeDirectory();
    UserRuntimeDirectory(const UserRuntimeDirectory&) = delete;
    UserRuntimeDirectory& operator=(const UserRuntimeDirectory&) = delete;

    [[nodiscard]] bool valid() const { return valid_; }
    /// The session lives: the directory stays.
    void keep() { made_.clear(); }

private:
    struct Made {
        FileDescriptor parent;
        std::string name;
    };

    bool make(int parent, const std::string& name, mode_t mode, const std::string& owner);

    std::vector<Made> made_; // outermost first
    bool valid_ = false;
};

} // namespace Vard
