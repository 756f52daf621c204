// The command line of vard_notify.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Vard {

/// What is shown: valid UTF-8, cut to a length that a notice can hold.
struct Notice {
    std::string title; ///< never empty
    std::string text;
    uint8_t level = 0; ///< 0 low, 1 normal, 2 and above critical

    [[nodiscard]] bool critical() const { return level >= 2; }
};

/// The notice that the arguments (without the program's name) describe: --header, --message and --level, each once, the
/// texts quoted. Throws std::invalid_argument, with one line for the user, for anything else.
Notice parseNotice(const std::vector<std::string>& args);

} // namespace Vard
