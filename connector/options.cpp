// What the command line says.
#include "options.h"

#include <netdb.h>

#include <CLI/CLI.hpp>

#include <charconv>

namespace Doors {

namespace {

std::string refuseRelative(const std::string& path) {
    return std::filesystem::path(path).is_absolute() ? "" : "an absolute path is needed, not `" + path + "'";
}

std::string refuseName(const std::string& address) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo* found = nullptr;
    if (::getaddrinfo(address.c_str(), nullptr, &hints, &found) != 0) {
        return "a numeric address is needed, not `" + address + "'";
    }
    ::freeaddrinfo(found);
    return "";
}

// What is not written as numbers are is refused by the comparison.
void takePorts(const std::string& range, Options& options) {
    uint16_t first = 0;
    uint16_t last = 0;
    const char* end = range.data() + range.size();
    const auto* dash = std::from_chars(range.data(), end, first).ptr;
    std::from_chars(std::min(dash + 1, end), end, last);
    if (first == 0 || first > last || std::to_string(first) + "-" + std::to_string(last) != range) {
        throw CLI::ValidationError("--ports", "FIRST-LAST is needed, both from 1 to 65535, not `" + range + "'");
    }
    options.firstPort = first;
    options.lastPort = last;
}

void describe(CLI::App& app, Options& options) {
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return failed->get_name() + ": " + error.what() + "; see " + failed->get_name() + " --help\n";
    });
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    const auto takeRange = [&options](const std::string& range) { takePorts(range, options); };
    app.add_option_function<std::string>("--ports", takeRange, "Ports to listen on, one a session (3389-3489)")
        ->type_name("FIRST-LAST");
    app.add_option("--bind", options.bind, "The numeric address to listen on (all)")
        ->check(refuseName)
        ->type_name("ADDRESS");
    app.add_option("--transport", options.transport, "The transport program (/usr/bin/freerdp-shadow-cli)")
        ->check(refuseRelative)
        ->type_name("PATH");
    app.add_option("--runtime-dir", options.runtimeDir, "Port files and hash lines (/run/vard_connector)")
        ->check(refuseRelative)
        ->envname("RUNTIME_DIRECTORY")
        ->type_name("DIR");
    app.add_option("--state-dir", options.stateDir, "The certificate (/var/lib/vard_connector)")
        ->check(refuseRelative)
        ->envname("STATE_DIRECTORY")
        ->type_name("DIR");
}

} // namespace

std::optional<Options> parseOptions(int argc, const char* const* argv) {
    Options options;
    CLI::App app("Lets remote-desktop clients into the sessions of vard_service.", "vard_connector");
    describe(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& end) {
        options.help = end.get_exit_code() == 0;
        app.exit(end);
        return options.help ? std::optional(options) : std::nullopt;
    }
    return options;
}

} // namespace Doors
