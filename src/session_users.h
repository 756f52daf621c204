// The users who have a session, in a file for PAM's modules.
#pragma once

#include <filesystem>
#include <set>
#include <string>

namespace Vard {

/// A file of names, one a line, for root alone: where the machine is closed for new sessions, /etc/pam.d/vard lets
/// those in it find theirs. It goes with the object. One thread at a time.
class SessionUsers {
public:
    /// Writes the file "session_users", with nobody in it, into the directory.
    explicit SessionUsers(const std::filesystem::path& directory);
    ~SessionUsers();
    SessionUsers(const SessionUsers&) = delete;
    SessionUsers& operator=(const SessionUsers&) = delete;

    /// Writes the names when they are others than before. What cannot be written is logged once, and tried again with
    /// the next call.
    void update(const std::set<std::string>& names);

private:
    [[nodiscard]] bool write(const std::set<std::string>& names) const;

    const std::filesystem::path path_;
    std::set<std::string> written_;
    bool failed_ = false;
};

} // namespace Vard
