// The command line.
#pragma once

#include "arguments.h"

#include <optional>
#include <string>

namespace Vardctl {

/// What was said on the command line.
struct Options {
    bool json = false; ///< print JSON
    bool noLegend = false; ///< print no line with the columns' names
    bool forceUser = false; ///< the target is a user's name, whatever it looks like
    bool secrets = false; ///< show password hashes
    bool noCheck = false; ///< take the password as it is
    uint32_t session = 0; ///< its id
    std::string target; ///< a user, or a word for chooseTarget()
    std::string domain; ///< of the user; empty for none
    std::string program; ///< the name of a published one
    std::string header; ///< of the message
    std::string message;
    std::string configuration = "/etc/vard/vard_service.json"; ///< the file to check
    std::string logLevel; ///< the service's own word
    Size size{0, 0}; ///< of the screen; 0 for what was not given
    uint8_t depth = 24; ///< of its colours, in bits
    uint8_t urgency = 1; ///< of the message: 0 low, 1 normal, from 2 on critical
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
