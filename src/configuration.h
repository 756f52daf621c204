// The configuration and the program list: one snapshot of each, and their being read again.
#pragma once

#include "display_pool.h"
#include "json_config.h"
#include "program_list.h"
#include "session_table.h"

#include <ctime>
#include <filesystem>
#include <memory>
#include <mutex>

namespace Vard {

/// What the configuration file says. What must not change in the middle, as for a session's start, takes one snapshot
/// and keeps to it. Any thread, but one at a time reloads.
class Configuration {
public:
    /// Reads the file and puts it in force: the log level, and the displays of `table` and `pool`, which must outlive
    /// the object. Throws vard_error or jsoncpp's exception, after an error line, when the file cannot be used.
    Configuration(std::filesystem::path file, SessionTable& table, DisplayPool& pool);

    /// The settings as they stand.
    [[nodiscard]] std::shared_ptr<const JsonConfig> settings() const;
    /// The program list as it stands; null before it was read first.
    [[nodiscard]] std::shared_ptr<const ProgramList> programs() const;
    /// Reads the program list anew; what is wrong with it is logged.
    void reloadPrograms();

    /// Reads the file again when it has changed since the last look, and puts it in force. One that cannot be used
    /// leaves all as it is, after an error line or jsoncpp's exception; a value that cannot, its own.
    void reloadIfChanged();

private:
    bool changed();
    void reload();
    void apply(std::shared_ptr<const JsonConfig> settings, const DisplayRange& range);

    const std::filesystem::path file_;
    SessionTable& table_;
    DisplayPool& pool_;
    mutable std::mutex lock_; // guards the two pointers, not what they point to
    std::shared_ptr<const JsonConfig> settings_;
    std::shared_ptr<const ProgramList> programs_;
    time_t fileTime_ = 0; // as last observed; 0: not yet
};

} // namespace Vard
