// The command line.
#pragma once

#include <optional>
#include <string>

namespace Vardctl {

/// What was said on the command line; the words are as they were written.
struct Options {
    bool json = false;
    bool noLegend = false;
    bool forceUser = false;
    bool secrets = false;
    std::string target; ///< a session id or a user
    std::string domain;
    std::string program;
    std::string header;
    std::string message;
    std::string size;
    std::string logLevel;
    std::string width = "1280";
    std::string height = "1024";
    std::string depth = "24";
    std::string urgency = "1";
    std::optional<std::string> duration;
    std::optional<std::string> inactivity;
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
