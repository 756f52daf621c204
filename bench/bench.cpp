// What a login, a query and a session cost, beside what the parts cost by themselves.
#include "growth.h"
#include "service.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string_view>
#include <thread>

namespace {

using namespace Test;
using Clock = std::chrono::steady_clock;

double seconds(const std::function<void()>& work) {
    const auto begin = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

/// Runs a program as the user without a shell in between, so that its own time is what is measured.
pid_t spawn(const std::vector<std::string>& words, const Account& user, const std::string& output = "/dev/null") {
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::setgid(user.uid()) != 0 || ::setuid(user.uid()) != 0 ||
            ::freopen(output.c_str(), "w", stdout) == nullptr || ::freopen("/dev/null", "w", stderr) == nullptr) {
            ::_exit(126);
        }
        std::vector<char*> argv;
        argv.reserve(words.size() + 1);
        for (const auto& word : words) {
            argv.push_back(const_cast<char*>(word.c_str()));
        }
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    return pid;
}

void runTool(const std::vector<std::string>& words, const Account& user) {
    const pid_t pid = spawn(words, user);
    ::waitpid(pid, nullptr, 0);
}

std::vector<std::string> serverWords(const Json::Value& config, const std::string& display) {
    std::vector<std::string> words{config.get("xvfb:path", "/usr/bin/Xorg").asString()};
    if (!config.isMember("xvfb:args")) {
        for (const char* word : {"-nolisten", "tcp", "-logfile", "/dev/null", "-config", "vard.conf", "-depth", "24"}) {
            words.emplace_back(word);
        }
        words.insert(words.begin() + 1, display);
        return words;
    }
    return {words[0], display, "-screen", "0", "1280x1024x24", "-nolisten", "tcp"};
}

/// The parts of one login, run bare: the X server until its first client is answered, and the five tools.
double partsTime(const Json::Value& config, const Account& user) {
    ::setenv("DISPLAY", ":90", 1);
    ::setenv("HOME", user.home().c_str(), 1);
    pid_t server = -1;
    double total = seconds([&] {
        server = spawn(serverWords(config, ":90"), user);
        while (!exists("/tmp/.X11-unix/X90")) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        runTool({"/usr/bin/xdpyinfo", "-queryExtensions"}, user);
    });
    const pid_t keeper = spawn({"/usr/bin/xclock"}, user); // a server without clients starts anew
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    total += seconds([&] {
        runTool({"/usr/bin/dbus-update-activation-environment", "--systemd", "--all"}, user);
        runTool({"/usr/bin/xrandr", "--size", "1280x1024", "--display", ":90", "--verbose"}, user);
        runTool({"/usr/bin/setxkbmap", "-keycodes", "evdev+aliases(qwerty)"}, user);
        runTool({"/usr/bin/xrdb", "-quiet", "-load", "/etc/X11/Xresources/x11-vard"}, user);
        runTool({"/usr/bin/winpr-hash", "-f", "sam", "-u", "alice", "-p", "secret", "-v", "1"}, user);
    });
    ::kill(keeper, SIGKILL);
    ::kill(server, SIGTERM);
    ::waitpid(keeper, nullptr, 0);
    ::waitpid(server, nullptr, 0);
    return total;
}

void loginCost(const char* name, const Json::Value& config, const Account& user) {
    constexpr int rounds = 7;
    std::vector<double> logins;
    std::vector<double> parts;
    Bus bus;
    const Service service(config);
    Signals signals;
    for (int i = 0; i < rounds; ++i) {
        int64_t sid = -1;
        logins.push_back(seconds([&] { sid = bus.login(user.name(), 1280, 1024); }));
        bus.call("vardSessionShutdown", "u", static_cast<uint32_t>(sid));
        signals.upTo("signalSessionShutdown");
        parts.push_back(partsTime(config, user));
    }
    std::printf("login with %-5s %6.0f ms, its parts bare %6.0f ms, ratio %.2f (at most 1.5)\n", name,
                median(logins) * 1e3, median(parts) * 1e3, median(logins) / median(parts));
}

void roundTrips() {
    constexpr int calls = 5000;
    Bus bus;
    const auto rate = [&](const char* interface, const char* method) {
        return calls / seconds([&] {
                   for (int i = 0; i < calls; ++i) {
                       bus.callInterface(interface, method);
                   }
               });
    };
    rate(busName, "vardStatus");
    const double ping = rate("org.freedesktop.DBus.Peer", "Ping");
    const double status = rate(busName, "vardStatus");
    std::printf("vardStatus     %6.0f per second, Ping %6.0f per second, ratio %.2f (at least 0.7)\n", status, ping,
                status / ping);
}

/// The sum of the smaps fields that begin so, in KiB.
long memoryKiB(int pid, const std::string& field) {
    std::ifstream smaps("/proc/" + std::to_string(pid) + "/smaps");
    long total = 0;
    for (std::string line; std::getline(smaps, line);) {
        if (line.starts_with(field)) {
            total += std::stol(line.substr(line.find(':') + 1));
        }
    }
    return total;
}

double processorSeconds(int pid) {
    std::istringstream stat(readFile("/proc/" + std::to_string(pid) + "/stat"));
    std::string skipped;
    for (int i = 0; i < 13; ++i) {
        stat >> skipped;
    }
    double user = 0;
    double system = 0;
    stat >> user >> system;
    return (user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

void memoryAndIdle() {
    constexpr int sessions = 20;
    std::vector<std::unique_ptr<Account>> users;
    Json::Value config = testConfig();
    config["debug:level"] = "info";
    const Service service(config);
    Bus bus;
    const long idle = memoryKiB(service.pid(), "Private_");
    const long idleOwn = memoryKiB(service.pid(), "Anonymous:");
    for (int i = 0; i < sessions; ++i) {
        users.push_back(std::make_unique<Account>("bench" + std::to_string(i)));
        bus.login(users.back()->name());
    }
    std::printf("memory         %6ld KiB private idle (at most 8192), %ld KiB private per session (at most 64)\n", idle,
                (memoryKiB(service.pid(), "Private_") - idle) / sessions);
    // The supervisors, forked from the service, share pages with it that are then no longer private to either.
    std::printf("               %6ld KiB anonymous idle, %ld KiB anonymous per session\n", idleOwn,
                (memoryKiB(service.pid(), "Anonymous:") - idleOwn) / sessions);
    const double before = processorSeconds(service.pid());
    const double wall = seconds([] { std::this_thread::sleep_for(std::chrono::seconds(60)); });
    std::printf("idle           %6.2f %% of a core over a minute, with %d sessions (below 0.5)\n",
                (processorSeconds(service.pid()) - before) / wall * 100, sessions);
}

} // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IONBF, 0); // a forked child must not print it again
    tableGrowth();
    if (argc > 1 && std::string_view(argv[1]) == "growth") {
        return 0;
    }
    {
        const Account alice("alice");
        Json::Value xorg(Json::objectValue);
        loginCost("Xorg", xorg, alice);
        Json::Value xvfb = testConfig();
        xvfb["debug:level"] = "info";
        loginCost("Xvfb", xvfb, alice);
        const Service service(xorg);
        roundTrips();
    }
    memoryAndIdle();
    return 0;
}
