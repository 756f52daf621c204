// What the command line says.
#include "options.h"

#include <getopt.h>
#include <netdb.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <iostream>

namespace Connector {

namespace {

bool parsePort(const char* begin, const char* end, uint16_t& port) {
    const auto [rest, failed] = std::from_chars(begin, end, port);
    return failed == std::errc{} && rest == end && port != 0;
}

bool isNumericAddress(const std::string& text) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo* found = nullptr;
    if (::getaddrinfo(text.c_str(), nullptr, &hints, &found) != 0) {
        return false;
    }
    ::freeaddrinfo(found);
    return true;
}

std::string fromEnvironment(const char* name, const char* other) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : other;
}

bool take(Options& options, int option, const std::string& value) {
    switch (option) {
        case 't':
            options.transport = value;
            return options.transport.is_absolute();
        case 'r':
            options.runtimeDir = value;
            return options.runtimeDir.is_absolute();
        case 's':
            options.stateDir = value;
            return options.stateDir.is_absolute();
        case 'b':
            options.bind = value;
            return isNumericAddress(value);
        case 'p':
            return parsePorts(value, options);
        default:
            return false;
    }
}

} // namespace

bool parsePorts(const std::string& text, Options& options) {
    const size_t dash = text.find('-');
    const char* begin = text.data();
    return dash != std::string::npos && parsePort(begin, begin + dash, options.firstPort) &&
           parsePort(begin + dash + 1, begin + text.size(), options.lastPort) && options.firstPort <= options.lastPort;
}

std::optional<Options> parseOptions(int argc, char** argv) {
    static const std::array<option, 7> known{{{"transport", required_argument, nullptr, 't'},
                                              {"runtime-dir", required_argument, nullptr, 'r'},
                                              {"state-dir", required_argument, nullptr, 's'},
                                              {"bind", required_argument, nullptr, 'b'},
                                              {"ports", required_argument, nullptr, 'p'},
                                              {"help", no_argument, nullptr, 'h'},
                                              {nullptr, 0, nullptr, 0}}};
    Options options;
    options.runtimeDir = fromEnvironment("RUNTIME_DIRECTORY", "/run/vard_connector");
    options.stateDir = fromEnvironment("STATE_DIRECTORY", "/var/lib/vard_connector");
    for (int found = 0; (found = ::getopt_long(argc, argv, "", known.data(), nullptr)) != -1;) {
        if (found == 'h') {
            options.help = true;
        } else if (found == '?') {
            return std::nullopt;
        } else if (!take(options, found, optarg)) {
            std::cerr << argv[0] << ": not valid: " << optarg << '\n';
            return std::nullopt;
        }
    }
    if (optind != argc) {
        std::cerr << argv[0] << ": too much: " << argv[optind] << '\n';
        return std::nullopt;
    }
    return options;
}

const char* usage() {
    return "usage: vard_connector [OPTION...]\n"
           "Lets remote-desktop clients into the sessions of vard_service.\n"
           "  --ports FIRST-LAST  ports to listen on, one a session (3389-3489)\n"
           "  --bind ADDRESS      the numeric address to listen on (all)\n"
           "  --transport PATH    the transport program (/usr/bin/freerdp-shadow-cli)\n"
           "  --runtime-dir DIR   port files and hash lines (/run/vard_connector)\n"
           "  --state-dir DIR     the certificate (/var/lib/vard_connector)\n"
           "  --help              this text\n";
}

} // namespace Connector
