// Reading files that are somebody else's, and writing whole ones.
#pragma once

#include "trusted_path.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace Vard::Utils {

/// The first `most` bytes of a file; opened without blocking, regular files only. Empty when it cannot be read. Call it
/// under the identity of the file's owner.
std::string readFile(const std::filesystem::path& path, size_t most, LastLink last);
/// The first 64 KiB of a file, in the same way; a final link is refused unless told.
std::string readSmallFile(const std::filesystem::path& path, bool followLink = false);

/// Writes all of the bytes to a blocking descriptor; false, with errno set, when that fails. Also in a forked child.
bool writeAll(int fd, std::string_view text) noexcept;

} // namespace Vard::Utils
