// What the command line says.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace Connector {

struct Options {
    std::filesystem::path transport = "/usr/bin/freerdp-shadow-cli";
    std::filesystem::path runtimeDir; ///< port files and, in "private", hash lines
    std::filesystem::path stateDir; ///< the certificate that clients remember
    std::string bind; ///< a numeric address; empty for all
    uint16_t firstPort = 3389;
    uint16_t lastPort = 3489;
    bool help = false;
};

/// A range of ports, "FIRST-LAST", into `options`; false when it is none.
bool parsePorts(const std::string& text, Options& options);

/// Reads the arguments; the directories default to what the service manager has made. Nothing, after a message on
/// standard error, when they are wrong.
std::optional<Options> parseOptions(int argc, char** argv);

/// What --help prints.
const char* usage();

} // namespace Connector
