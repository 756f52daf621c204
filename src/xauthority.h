// X authority files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace Vard {

namespace Utils {

/// The machine's host name, under which clients look for a cookie; empty when it cannot be read.
std::string getHostname();

} // namespace Utils

/// The one binary record of an X authority file: family "local", host name, display number, MIT-MAGIC-COOKIE-1, cookie.
std::vector<uint8_t> xauthorityRecord(const std::string& host, unsigned display, const std::vector<uint8_t>& cookie);

/// An X authority file that goes with its object. Whoever holds the object may move it, but keeps it while the file is
/// used.
class XAuthorityFile {
public:
    /// No file.
    XAuthorityFile() = default;
    /// Writes a new file, replacing whatever is at the path, owned by the user and group, mode 0440. The umask it needs
    /// is in force for one call only. An empty group means the user's own; an unknown one is logged and leaves the
    /// group to root's. Logs "%s: create xauthfile failed, path: %s" and throws vard_error("createXauthFile") when it
    /// cannot be written; then no file is left.
    XAuthorityFile(std::filesystem::path path, const std::vector<uint8_t>& record, const std::string& user,
                   const std::string& group);
    XAuthorityFile(XAuthorityFile&& other) noexcept : path_(std::exchange(other.path_, {})) {}
    XAuthorityFile& operator=(XAuthorityFile&& other) noexcept;
    XAuthorityFile(const XAuthorityFile&) = delete;
    XAuthorityFile& operator=(const XAuthorityFile&) = delete;
    ~XAuthorityFile() { remove(); }

    /// Where the file is; empty when there is none.
    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    /// Removes the file before its time.
    void remove() noexcept;

private:
    std::filesystem::path path_;
};

} // namespace Vard
