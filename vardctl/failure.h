// How the command ends: its exit codes, and the failure that carries one.
#pragma once

#include <stdexcept>
#include <string>

namespace Vardctl {

/// Part of the command's interface: scripts branch on these.
enum class ExitCode {
    done = 0,
    failed = 1, ///< refused by the service, or no such session
    usage = 2, ///< wrong arguments
    notRunning = 3, ///< the service is not on the bus, or the bus cannot be reached
    denied = 4 ///< the bus does not let the caller call that method
};

/// For the end of a message whose cause the service has logged.
inline constexpr const char* journalHint = "; the reason is in the journal: journalctl -t vard_service";

/// Ends the command with a message for its user, in plain text without the command's name.
class Failure : public std::runtime_error {
public:
    /// Any code but `done`.
    Failure(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}

    /// What the command ends with.
    [[nodiscard]] ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

} // namespace Vardctl
