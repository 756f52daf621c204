// Starting and stopping: arguments, checks, the pid file, signals, a second instance, a bus that goes away.
#include "service.h"

#include <gmock/gmock.h>

#include <csignal>
#include <thread>

namespace {

using namespace Test;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* pidFile = "/run/vard/vard_service.pid";

class StartStop : public ServiceTest {
protected:
    static Output program(const std::string& arguments, const std::string& before = "") {
        return shell("cd /tmp && " + before + " timeout 60 " + Service::program + " " + arguments);
    }
    static Output programWith(const std::string& config) {
        writeFile("/tmp/own.json", config);
        return program("--config /tmp/own.json");
    }
};

TEST_F(StartStop, RefusesWhatItCannotRunWith) {
    const std::string usage = std::string("usage: ") + Service::program + "--config <path> [--background]\n";
    for (const char* arguments : {"-h", "--config", "--background x"}) {
        EXPECT_EQ(program(arguments).text, usage) << arguments;
    }
    EXPECT_EQ(program("").text, "config not found\n"); // the default is a file in the current directory
    EXPECT_EQ(program("").status, 1);
    writeFile("/tmp/empty.json", "{}");
    const auto refused = program("--config /tmp/missing --config /tmp/empty.json", "runuser -u alice --");
    EXPECT_EQ(refused.text, "root privileges required to run\n") << "the last file counts";
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(programWith("[1]").text, "exception: DBusService\n");
    EXPECT_TRUE(journal.waitFor("DBusService: json not object, file: /tmp/own.json"));
    EXPECT_THAT(programWith("{ \"a\"").text, StartsWith("exception: "));
    EXPECT_FALSE(exists(pidFile));
}

TEST_F(StartStop, KeepsAPidFileThatNoSecondInstanceTouchesAndSaysGoodbyeOnce) {
    mustRun(std::string("mkdir -m 0700 /run/vard && echo leftover-of-an-earlier-run > ") + pidFile);
    start();
    const auto pid = std::to_string(service->pid());
    EXPECT_EQ(shell("stat -c %a /run/vard").text, "755\n");
    EXPECT_TRUE(journal.waitFor("start: started, version VARD SERVICE v.0.3.rel2 build(202306200649), pid: " + pid +
                                ", config: `" + Service::configFile + "'"));
    EXPECT_THAT(programWith("{}").text, HasSubstr("exception: ru.korvex.vard is owned by another instance"));
    EXPECT_EQ(readFile(pidFile), pid);

    Signals signals;
    ::kill(service->pid(), SIGTERM);
    service->stop(); // a second one changes nothing
    EXPECT_EQ(signals.upTo("signalVardStopped"), (Heard{{"signalVardStopped", {}}}));
    EXPECT_FALSE(exists(pidFile) || bus.owned());
    start();
    bus.call("proxyListenTimeout", "u", 7U);
    EXPECT_EQ(signals.upTo("signalProxyListenTimeout"), (Heard{{"signalProxyListenTimeout", {7}}}))
        << "a second farewell";
    bus.call("busServiceShutdown");
    service->wait();
}

// Of the interrupts from its terminal and of its end, whether or not it was given descriptors.
TEST_F(StartStop, BackgroundServiceOutlivesItsTerminalAndStopsOnTermination) {
    writeFile("/tmp/own.json", testConfig().toStyledString());
    for (const std::string descriptors : {"</dev/null >/dev/null 2>&1", "<&- >&- 2>&-"}) {
        EXPECT_EQ(program("--background --config /tmp/own.json " + descriptors).status, 0);
        ASSERT_TRUE(waitUntil([&] { return bus.call("vardStatus").ok(); }));
        const int pid = std::stoi(readFile(pidFile));
        const std::string process = "cd /proc/" + std::to_string(pid);
        EXPECT_EQ(mustRun(process + "/fd; readlink 0 1 2"), "/dev/null\n/dev/null\n/dev/null\n");
        EXPECT_EQ(mustRun(process + "; grep SigIgn status | grep -c '[2367abef]$'"), "1\n");
        ::kill(pid, SIGINT);
        ::kill(pid, SIGHUP);
        EXPECT_TRUE(bus.call("vardStatus").ok());
        ::kill(pid, SIGTERM);
        EXPECT_TRUE(waitUntil([&] { return !bus.owned() && !exists(pidFile); }));
    }
    EXPECT_TRUE(waitUntil([&] { return journal.count("start: shutdown complete") == 2; }));
}

// From when it takes signals at all; before that it is just another program.
TEST_F(StartStop, StopSignalAtAnyMomentOfTheStartIsRemembered) {
    for (int milliseconds = 0; milliseconds < 60; milliseconds += milliseconds < 8 ? 1 : 4) {
        Service early(testConfig(), false);
        const auto taken = [process = "/proc/" + std::to_string(early.pid()) + "/status"] {
            const auto status = readFile(process);
            return std::stoull(status.substr(status.find("SigCgt:") + 7), nullptr, 16) >> (SIGTERM - 1) & 1;
        };
        while (early.running() && taken() == 0) { // no pause: these are the moments
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
        early.stop();
        ASSERT_FALSE(HasFailure()) << "after " << milliseconds << " ms";
    }
}

TEST_F(StartStop, EndsInOrderWhenTheBusGoesAway) {
    start();
    ASSERT_EQ(bus.login("alice"), 33);
    mustRun("pkill -x dbus-daemon");
    service->wait();
    EXPECT_TRUE(journal.waitFor("busAlive: connection to the system bus lost, stopping"));
    EXPECT_TRUE(processes("Xvfb").empty());
    mustRun("rm -f /run/dbus/system_bus_socket");
    EXPECT_THAT(programWith("{}").text, StartsWith("dbus error: "));
    mustRun("dbus-daemon --system --fork --nopidfile");
    bus = Bus();
}

} // namespace
