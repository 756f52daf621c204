// What the command line says.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace Doors {

/// How the connector was told to run.
struct Options {
    std::filesystem::path transport = "/usr/bin/freerdp-shadow-cli"; ///< its program
    std::filesystem::path runtimeDir = "/run/vard_connector"; ///< port files and, in "private", hash lines
    std::filesystem::path stateDir = "/var/lib/vard_connector"; ///< the certificate that clients remember
    std::string bind; ///< a numeric address; empty for all
    uint16_t firstPort = 3389; ///< of those that a door may have
    uint16_t lastPort = 3489; ///< of them, too
    bool help = false; ///< was all that was asked for
};

/// Reads the arguments; the directories default to what the service manager has made. Prints the help when it is asked
/// for. Nothing, after a message on standard error, when they are wrong.
std::optional<Options> parseOptions(int argc, const char* const* argv);

} // namespace Doors
