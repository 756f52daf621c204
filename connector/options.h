// What the command line says.
#pragma once

#include "network.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <vector>

namespace Doors {

/// How the connector was told to run.
struct Options {
    std::vector<Tcp::endpoint> listen; ///< besides the sockets that the service manager hands over
    std::vector<Network> balancers; ///< whose PROXY protocol is believed, and expected
    size_t strangers = 32; ///< connections from one neighbour that have not shown a password
    size_t strangersInAll = 512;
    size_t arrivals = 20; ///< new connections from one neighbour in a second
    size_t arrivalsInAll = 400;
    std::filesystem::path transport = "/usr/bin/freerdp-shadow-cli"; ///< its program
    std::filesystem::path runtimeDir = "/run/vard_connector"; ///< hash lines and the transports' sockets
    std::filesystem::path stateDir = "/var/lib/vard_connector"; ///< the certificate that clients remember
    bool help = false; ///< was all that was asked for
};

/// Reads the arguments; the directories default to what the service manager has made. Prints the help when it is asked
/// for. Nothing, after a message on standard error, when they are wrong.
std::optional<Options> parseOptions(int argc, const char* const* argv);

} // namespace Doors
