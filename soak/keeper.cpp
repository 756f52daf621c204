// Keeps the service running as its unit would.
#include "keeper.h"

#include "bus.h"
#include "machine.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <string_view>

namespace Soak {

using namespace Test;
using namespace std::chrono_literals;

namespace {

constexpr const char* preload =
    std::string_view(ODD_MACHINE).empty() ? "LD_PRELOAD=" : "LD_PRELOAD=/usr/local/lib/odd_machine.so";

} // namespace

Keeper::Keeper(Table& table) : table_(table) {
    spawn();
    thread_ = std::thread([this] { keep(); });
    if (!answers()) {
        table_.count(&Fault::broken, "the service does not start");
    }
}

Keeper::~Keeper() { stop(); }

// Nobody else but the bus is outside this program's own process session, in which the service is not. What has lost its
// parent and is dead is the first process's to reap.
std::string Keeper::family() const {
    return shell("ps -A -o sess=,uid=,pid=,ppid=,stat=,comm= | awk '$1 != " + std::to_string(::getsid(0)) +
                 " && $3 != " + std::to_string(pid_) +
                 " && $6 != \"dbus-daemon\" && !($4 == 1 && $5 ~ /^Z/) { print $2, $3, $4, $5, $6 }'")
        .text;
}

// As the unit's end does it: told to end, then killed; what not even that ends stays.
void Keeper::endFamily() const {
    const auto tell = [this](const char* how) {
        shell("kill " + std::string(how) + " $(echo '" + family() + "' | cut -d' ' -f2)");
    };
    const auto gone = [this] { return family().empty(); };
    tell("-TERM");
    tell("-CONT");
    if (!waitUntil(gone, 3s)) {
        waitUntil([&] { return tell("-KILL"), gone(); }, 2s);
    }
}

void Keeper::spawn() {
    const int pid = ::fork();
    if (pid == 0) {
        ::setsid();
        ::execl("/usr/bin/env", "env", preload, "/usr/bin/vard_service", "--config", configFile, nullptr);
        ::_exit(127);
    }
    pid_ = pid;
    ++generation_;
}

void Keeper::keep() {
    for (;;) {
        int status = 0;
        ::waitpid(pid_, &status, 0);
        if (stopping_) {
            status_ = status;
            return;
        }
        if (endsAllowed_) {
            askedUpTo_ = generation_.load();
        } else {
            table_.count(&Fault::broken, "the service ended unasked, wait status " + std::to_string(status));
        }
        endFamily();
        std::this_thread::sleep_for(1s); // the unit's RestartSec
        if (stopping_) {
            return;
        }
        spawn();
    }
}

bool Keeper::answers(std::chrono::seconds limit) {
    return waitUntil(
        [] {
            try {
                return Bus(5s).call("vardStatus").ok();
            } catch (const std::exception&) { // no bus
                return false;
            }
        },
        limit);
}

void Keeper::comeBack(int generation) const {
    if (!waitUntil([&] { return generation_ > generation; }, 30s) || !answers(20s)) {
        throw std::runtime_error("the next service does not come up");
    }
}

void Keeper::killService() const {
    const int before = generation_;
    ::kill(pid_, SIGKILL);
    comeBack(before);
}

bool Keeper::stop() {
    if (!thread_.joinable()) {
        return status_ == 0;
    }
    const auto begin = std::chrono::steady_clock::now();
    stopping_ = true;
    ::kill(pid_, SIGTERM);
    thread_.join();
    return status_ == 0 && std::chrono::steady_clock::now() - begin < 30s; // the unit's TimeoutStopSec
}

} // namespace Soak
