// vard_connector: lets remote-desktop clients into the sessions of vard_service.
#include "certificate.h"
#include "doorkeeper.h"
#include "options.h"

#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-journal.h>

#include <csignal>
#include <filesystem>
#include <iostream>

namespace {

namespace fs = std::filesystem;

struct Unref {
    void operator()(sd_event* loop) const { sd_event_unref(loop); }
};

// What a connector that was killed has left would name ports that nobody listens on.
void emptyDirectory(const fs::path& directory) {
    for (const auto& entry : fs::directory_iterator(directory)) {
        if (entry.is_regular_file() && !entry.is_symlink()) {
            fs::remove(entry.path());
        }
    }
}

void prepareDirectories(const Doors::Options& options) {
    ::umask(077);
    if (fs::create_directories(options.runtimeDir)) {
        fs::permissions(options.runtimeDir, static_cast<fs::perms>(0755)); // the port files are for everybody
    }
    fs::create_directories(options.runtimeDir / "private");
    emptyDirectory(options.runtimeDir);
    emptyDirectory(options.runtimeDir / "private");
    fs::create_directories(options.stateDir);
}

void blockSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGCHLD}) {
        ::sigaddset(&signals, number);
    }
    ::sigprocmask(SIG_BLOCK, &signals, nullptr);
}

int run(const Doors::Options& options) {
    prepareDirectories(options);
    Doors::ensureCertificate(options.stateDir);
    blockSignals();
    sd_event* made = nullptr;
    if (const int failed = sd_event_new(&made); failed < 0) {
        throw std::system_error(-failed, std::generic_category(), "sd_event_new");
    }
    const std::unique_ptr<sd_event, Unref> loop(made);
    Doors::Doorkeeper doorkeeper(loop.get(), options);
    const auto stop = [&doorkeeper] { doorkeeper.stop(); };
    const auto terminate = Doors::EventSource::signal(loop.get(), SIGTERM, stop);
    const auto interrupt = Doors::EventSource::signal(loop.get(), SIGINT, stop);
    sd_notify(0, "READY=1");
    return sd_event_loop(loop.get()) == 0 ? 0 : 1;
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
