// The service's own directory under /run, with its pid file.
#pragma once

#include "display_range.h"
#include "json_config.h"

#include <filesystem>

namespace Vard {

/// The directory that holds the pid file and the sessions' authority files. The pid file goes with the object. Main
/// thread.
class ServiceRuntimeDirectory {
public:
    /// Makes the directory that the settings name, clears away what an instance that was killed has left there and on
    /// the displays of `range`, and writes the pid file. Throws vard_error, after an error line, when the directory
    /// cannot be made.
    ServiceRuntimeDirectory(const JsonConfig& settings, const DisplayRange& range);
    ~ServiceRuntimeDirectory() { removePidFile(); }
    ServiceRuntimeDirectory(const ServiceRuntimeDirectory&) = delete;
    ServiceRuntimeDirectory& operator=(const ServiceRuntimeDirectory&) = delete;

    /// Where it is.
    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    /// Removes the pid file before its time.
    void removePidFile() noexcept;

private:
    void create() const;
    void removeStaleCookies() const;
    void writePidFile();

    std::filesystem::path path_;
    bool hasPidFile_ = false;
};

} // namespace Vard
