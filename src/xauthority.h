// X authority files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace Vard {

/// The one binary record of an X authority file: family "local", host name, display number, MIT-MAGIC-COOKIE-1, cookie.
std::vector<uint8_t> xauthorityRecord(const std::string& host, unsigned display, const std::vector<uint8_t>& cookie);

/// Writes a new X authority file, replacing whatever is at the path, owned by the user and group, mode 0440. The umask
/// it needs is in force for one call only. An empty group means the user's own; an unknown one is logged and leaves the
/// group to root's. Logs "%s: create xauthfile failed, path: %s" and throws vard_error("createXauthFile") when it
/// cannot be written; then no file is left.
void writeXauthority(const std::filesystem::path& path, const std::vector<uint8_t>& record, const std::string& user,
                     const std::string& group);

} // namespace Vard
