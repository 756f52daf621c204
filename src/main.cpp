// The process entry: arguments, checks, signals, start.
#include "dbus_service.h"
#include "process_child.h"
#include "stop_request.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>

namespace {

struct Arguments {
    std::string config = "vard_service.json";
    bool background = false;
};

std::optional<Arguments> parseArguments(int argc, char** argv) {
    Arguments result;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--background") == 0) {
            result.background = true;
        } else if (std::strcmp(argv[i], "--config") == 0 && i + 1 < argc) {
            result.config = argv[++i];
        } else {
            return std::nullopt;
        }
    }
    return result;
}

// Whatever is opened later would take the place of a descriptor that is missing here, and the programs of sessions
// would find a closed one or something of the service's. Before main: the dispatcher's pipe is made before it too.
[[gnu::constructor(101)]] void openStandardDescriptors() {
    int fd = ::open("/dev/null", O_RDWR);
    while (fd >= 0 && fd < STDERR_FILENO) {
        fd = ::open("/dev/null", O_RDWR);
    }
    if (fd > STDERR_FILENO) {
        ::close(fd);
    }
}

void signalHandler(int number) {
    if (number == SIGTERM || number == SIGINT) {
        Vard::requestStop();
    }
}

void setSignals(bool background) {
    std::signal(SIGTERM, signalHandler);
    // A detached service must not be stopped by an interrupt from the terminal that it came from.
    std::signal(SIGINT, background ? SIG_IGN : signalHandler);
    if (background) {
        std::signal(SIGHUP, SIG_IGN); // nor by that terminal's end
    }
}

void runService(const std::string& config) {
    try {
        Vard::DBusService::start(config);
    } catch (const DBus::Error& err) {
        std::cerr << "dbus error: " << err.message() << '\n';
    } catch (const std::exception& err) {
        std::cerr << "exception: " << err.what() << '\n';
    }
}

} // namespace

int main(int argc, char** argv) {
    Vard::programArgv = argv;
    const auto arguments = parseArguments(argc, argv);
    if (!arguments) {
        std::cout << "usage: " << argv[0] << "--config <path> [--background]\n";
        return 0;
    }
    std::error_code failed;
    if (!std::filesystem::exists(arguments->config, failed)) {
        std::cerr << "config not found\n";
        return 1;
    }
    if (::getuid() != 0) {
        std::cerr << "root privileges required to run\n";
        return 1;
    }
    if (arguments->background && ::fork() != 0) {
        return 0; // the parent, or no child could be made: either way there is nothing more to do here
    }
    setSignals(arguments->background);
    runService(arguments->config);
    return 0;
}
