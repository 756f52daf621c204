// vard_connector: lets remote-desktop clients into the sessions of vard_service.
#include "certificate.h"
#include "doorkeeper.h"
#include "front_door.h"
#include "options.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-journal.h>
#include <boost/asio/signal_set.hpp>

#include <csignal>
#include <filesystem>
#include <iostream>

namespace {

namespace fs = std::filesystem;

// What a connector that was killed has left.
void emptyDirectory(const fs::path& directory) {
    for (const auto& entry : fs::directory_iterator(directory)) {
        if (entry.is_regular_file() || entry.is_socket()) {
            fs::remove(entry.path());
        }
    }
}

// Nobody else may come to the hash lines and to the transports' sockets.
void prepareDirectories(const Doors::Options& options) {
    ::umask(077);
    fs::create_directories(options.runtimeDir);
    fs::permissions(options.runtimeDir, fs::perms::owner_all);
    emptyDirectory(options.runtimeDir);
    fs::create_directories(options.stateDir);
}

// A connection takes two descriptors, and with its transport four.
void raiseLimits() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

int run(const Doors::Options& options) {
    raiseLimits();
    Doors::Lobby lobby(options);
    Doors::asio::io_context loop;
    Doors::FrontDoor frontDoor(loop, options, lobby); // one that runs already has the port, and its files stay
    prepareDirectories(options);
    Doors::ensureCertificate(options.stateDir);
    int status = 1;
    const auto finished = [&](bool orderly) {
        status = orderly ? 0 : 1;
        loop.stop();
    };
    Doors::Doorkeeper doorkeeper(loop, options, finished);
    lobby.place = [&doorkeeper](const auto& client) { doorkeeper.place(client); };
    Doors::asio::signal_set signals(loop, SIGTERM, SIGINT);
    signals.async_wait([&](Doors::Failed, int) {
        frontDoor.close();
        doorkeeper.stop();
    });
    sd_notify(0, "READY=1");
    while (!loop.stopped()) {
        try {
            loop.run();
        } catch (const std::exception& err) { // one client's trouble is not the others'
            sd_journal_print(LOG_ERR, "event: exception: %s", err.what());
        }
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    const auto options = Doors::parseOptions(argc, argv);
    if (!options || options->help) {
        return options ? 0 : 2;
    }
    try {
        return run(*options);
    } catch (const std::exception& err) {
        sd_journal_print(LOG_ERR, "exception: %s", err.what());
        std::cerr << "exception: " << err.what() << '\n';
        return 1;
    }
}
