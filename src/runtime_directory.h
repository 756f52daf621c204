// Directories that root makes on a path that users may reach.
#pragma once

#include <filesystem>
#include <string>

namespace Vard {

/// A user's runtime directory during a session start. If this start created it, it is removed again unless keep() is
/// called.
class RuntimeDirectory {
public:
    /// Makes sure the directory exists: an existing one is left as it is, a missing one is created with its parents (0755)
    /// and itself exactly 0700, owned by `user`. Works through descriptors and follows no link below the root. Logs
    /// "%s: create xdg directory failed, path: %s" under "startSession" on failure; valid() is false then.
    RuntimeDirectory(const std::filesystem::path& path, const std::string& user);
    ~RuntimeDirectory();
    RuntimeDirectory(const RuntimeDirectory&) = delete;
    RuntimeDirectory& operator=(const RuntimeDirectory&) = delete;

    [[nodiscard]] bool valid() const { return valid_; }
    /// The session lives: the directory stays.
    void keep() { created_ = false; }

private:
    std::filesystem::path path_;
    bool valid_ = false;
    bool created_ = false;
};

} // namespace Vard
