// Whether root alone can change a file.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace Vardctl {

/// Who else than root can change or replace what stands at an absolute path, by a directory or a link on the way too,
/// in words; empty when nobody can. What is not there is nobody's.
std::string whoElseWrites(const std::filesystem::path& path);

/// What to do about it, for a file by which one becomes root, and for one by which one becomes any user.
inline constexpr const char* ownedByRoot =
    "whoever can change it is as good as root: `chown root:root' and `chmod go-w' it";
inline constexpr const char* ownedForUsers =
    "whoever can change it is as good as all users: `chown root:root' and `chmod go-w' it";

/// The lowest number of an account of a person's; those of programs have lower ones.
inline constexpr uid_t firstHuman = 1000;

/// The user's name, or the id as a number.
std::string userName(uid_t uid);

} // namespace Vardctl
