// What of a configuration does not do what it seems to say.
#pragma once

#include "json_config.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Vard {

/// One such thing.
struct SettingFinding {
    std::string problem; ///< "unknown key", "wrong type", and the like
    std::string key;
    std::string found; ///< as in the file
    std::string inForce; ///< what counts instead, or comes of it
    bool grave = false; ///< nobody gets a session with it, or the wrong ones may

    /// In one line.
    [[nodiscard]] std::string text() const;
};

/// Holds the configuration against the known keys and their types, and the PAM service, the group, the displays and the
/// attempts that it names against the machine. Logs nothing but a look-up
/// of the group that fails. Any thread.
std::vector<SettingFinding> reviewSettings(const JsonConfig& settings);

/// Where PAM finds a service, or what one includes: the site's file, or else the distribution's, there or not. An
/// absolute name stays.
std::filesystem::path pamServiceFile(const std::filesystem::path& name);

} // namespace Vard
