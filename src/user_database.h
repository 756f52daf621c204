// Users and groups of the system databases.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace Vard {

/// Ids of a user or group that the databases do not know: all ones, which no system call takes for root.
inline constexpr uid_t unknownUid = static_cast<uid_t>(-1);
inline constexpr gid_t unknownGid = static_cast<gid_t>(-1);

/// One user of the system database; ids are all ones and texts empty for an unknown user.
struct UserInfo {
    std::string user;
    uid_t uid = unknownUid;
    gid_t gid = unknownGid;
    std::string gecos;
    std::string home;
    std::string shell;

    /// True for a user that the databases know.
    [[nodiscard]] bool known() const { return uid != unknownUid; }
};

/// Look-ups use only the reentrant calls and may run on any thread. They hold a ForkGuard, so that a forked child never
/// finds the databases' own locks taken: never call them from a signal handler, and in a child only where it is
/// single-threaded. A name that is empty, longer than 255 bytes or holds a slash, colon,
/// newline or NUL is unknown without asking.
namespace Utils {

/// The user of that name. Unknown: logs "%s: %s failed, error: %s, code: %d" with "getpwnam" and answers unknown ids.
UserInfo getUserInfo(const std::string& user);
/// The user's id, or all ones; an unknown user is logged.
uid_t getUserUid(const std::string& user);
/// The id of the user's primary group, or all ones; an unknown user is logged. Required; nobody here calls it.
gid_t getUserGid(const std::string& user);
/// The user's home directory, or an empty path; an unknown user is logged. Required; nobody here calls it.
std::filesystem::path getUserHome(const std::string& user);
/// The group's id, or all ones; an unknown group is logged.
gid_t getGroupGid(const std::string& group);
/// The names of the group's members; empty for an unknown group, which is logged. Required; nobody here calls it.
std::vector<std::string> getGroupMembers(const std::string& group);
/// The ids of all groups of the user, the primary one included.
std::vector<gid_t> getUserGroups(const std::string& user, gid_t primary);

/// Changes owner and group of a path without following a final link. An empty user leaves the owner as it is; an empty
/// group means the user's own, or, without a user, leaves it. An unknown name changes nothing. Failures are logged;
/// true when all was done.
bool setOwner(const std::filesystem::path& path, const std::string& user, const std::string& group);
/// The same for an open file.
bool setOwner(int fd, const std::string& user, const std::string& group);

} // namespace Utils
} // namespace Vard
