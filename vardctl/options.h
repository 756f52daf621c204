// The command line.
#pragma once

#include "arguments.h"

#include <optional>
#include <string>

namespace Vardctl {

/// What was said on the command line.
struct Options {
    bool json = false;
    bool noLegend = false;
    bool forceUser = false;
    bool secrets = false;
    uint32_t session = 0; ///< its id
    std::string target; ///< a user, or a word for chooseTarget()
    std::string domain;
    std::string program;
    std::string header;
    std::string message;
    std::string logLevel; ///< the service's own word
    Size size;
    uint8_t depth = 24;
    uint8_t urgency = 1;
    std::optional<uint32_t> duration; ///< seconds
    std::optional<uint32_t> inactivity; ///< seconds
};

/// One of the subcommands; prints to standard output and throws Failure.
using Command = void (*)(const Options&);

/// A subcommand with what was said to it.
struct Invocation {
    Command command = nullptr; ///< null when only help or the version was asked for, which has been printed
    std::string name; ///< of the subcommand
    Options options;
};

/// Reads the command line; throws Failure with the code of wrong usage.
Invocation parseCommandLine(int argc, const char* const* argv);

} // namespace Vardctl
