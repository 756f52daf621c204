// What the command line says.
#include "options.h"

#include "build_version.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

namespace Doors {

namespace {

std::string refuseRelative(const std::string& path) {
    return std::filesystem::path(path).is_absolute() ? "" : "an absolute path is needed, not `" + path + "'";
}

// Reads each of an option's texts; the first that is none is named.
template <typename Value>
void takeAll(const char* option, const char* form, std::optional<Value> (*read)(const std::string&),
             const std::vector<std::string>& texts, std::vector<Value>& values) {
    values.clear();
    for (const auto& text : texts) {
        const auto value = read(text);
        if (!value) {
            throw CLI::ValidationError(option, std::string(form) + " is needed, not `" + text + "'");
        }
        values.push_back(*value);
    }
}

void describeLimits(CLI::App& app, Options& options) {
    const auto limit = [&app](const char* name, size_t& value, const char* text) {
        app.add_option(name, value, std::string(text) + " (" + std::to_string(value) + ")")
            ->check(CLI::Range(size_t{1}, size_t{100000}))
            ->type_name("NUMBER");
    };
    limit("--strangers", options.strangers, "Connections of one address that have not shown a password yet");
    limit("--strangers-total", options.strangersInAll, "The same, of all");
    limit("--arrivals", options.arrivals, "New connections of one address in a second");
    limit("--arrivals-total", options.arrivalsInAll, "The same, of all");
}

void describe(CLI::App& app, Options& options) {
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return failed->get_name() + ": " + error.what() + "; see " + failed->get_name() + " --help\n";
    });
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    const auto listen = [&options](const std::vector<std::string>& texts) {
        takeAll("--listen", "ADDRESS:PORT, with a numeric address or none,", parseEndpoint, texts, options.listen);
    };
    app.add_option_function(
           "--listen", std::function(listen),
           "Where clients come, may be repeated (the manager's sockets, or else :3389, on all addresses)")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name("ADDRESS:PORT");
    const auto balancers = [&options](const std::vector<std::string>& texts) {
        takeAll("--proxy-protocol-from", "ADDRESS or ADDRESS/BITS", Network::parse, texts, options.balancers);
    };
    app.add_option_function("--proxy-protocol-from", std::function(balancers),
                            "Balancers that hand clients on by the PROXY protocol, may be repeated (none)")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name("NETWORK");
    describeLimits(app, options);
    app.add_option("--transport", options.transport, "The transport program (/usr/bin/freerdp-shadow-cli)")
        ->check(refuseRelative)
        ->type_name("PATH");
    app.add_option("--runtime-dir", options.runtimeDir, "Hash lines and the transports' sockets (/run/vard_connector)")
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
    app.set_version_flag("--version", std::string("vard_connector ") + Vard::buildVersion);
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
