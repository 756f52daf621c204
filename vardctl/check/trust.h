// Whether root alone can change a file.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace Vardctl {

/// Who else than root can change or replace what stands at an absolute path, by a directory or a link on the way too,
/// in words; empty when nobody can. What is not there is nobody's.
std::string whoElseWrites(const std::filesystem::path& path);

/// The user's name, or the id as a number.
std::string userName(uid_t uid);

} // namespace Vardctl
