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
    ::kill(service->pid(), SIGTERM); // a second one changes nothing
    EXPECT_EQ(signals.upTo("signalVardStopped"), (std::vector<Signal>{{"signalVardStopped", {}}}));
    EXPECT_EQ(service->wait(), 0);
    EXPECT_TRUE(journal.waitFor("start: shutdown complete"));
    EXPECT_FALSE(exists(pidFile) || bus.owned());
}

TEST_F(StartStop, BackgroundServiceIgnoresInterruptsAndStopsOnTermination) {
    writeFile("/tmp/own.json", testConfig().toStyledString());
    EXPECT_EQ(program("--background --config /tmp/own.json </dev/null >/dev/null 2>&1").status, 0);
    ASSERT_TRUE(waitUntil([&] { return bus.call("vardStatus").ok(); }));
    const int pid = std::stoi(readFile(pidFile));
    ::kill(pid, SIGINT);
    EXPECT_EQ(mustRun("grep SigIgn /proc/" + std::to_string(pid) + "/status | grep -c '[2367abef]$'"), "1\n");
    EXPECT_TRUE(bus.call("vardStatus").ok());
    ::kill(pid, SIGTERM);
    EXPECT_TRUE(waitUntil([&] { return !bus.owned() && !exists(pidFile); }));
}

TEST_F(StartStop, StopSignalAtAnyMomentOfTheStartIsRemembered) {
    for (int milliseconds = 0; milliseconds < 60; milliseconds += 4) {
        Service early(testConfig(), false);
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
        const int status = early.stop(); // would wait for ever
        EXPECT_TRUE(status == 0 || status == 128 + SIGTERM) << status;
    }
}

TEST_F(StartStop, EndsInOrderWhenTheBusGoesAway) {
    start();
    ASSERT_EQ(bus.login("alice"), 33);
    mustRun("pkill -x dbus-daemon");
    EXPECT_EQ(service->wait(), 0);
    EXPECT_TRUE(journal.waitFor("busAlive: connection to the system bus lost, stopping"));
    EXPECT_TRUE(journal.waitFor("start: shutdown complete"));
    EXPECT_TRUE(processes("Xvfb").empty());
    mustRun("rm -f /run/dbus/system_bus_socket");
    EXPECT_THAT(programWith("{}").text, StartsWith("dbus error: "));
    mustRun("dbus-daemon --system --fork --nopidfile");
    bus = Bus();
}

TEST_F(StartStop, BackgroundServiceOutlivesItsTerminalAndNeedsNoDescriptors) {
    writeFile("/tmp/background.json", testConfig().toStyledString());
    EXPECT_EQ(program("--background --config /tmp/background.json <&- >&- 2>&-").status, 0);
    ASSERT_TRUE(waitUntil([&] { return bus.call("vardStatus").ok(); }));
    const int pid = std::stoi(readFile("/run/vard/vard_service.pid"));
    EXPECT_EQ(mustRun("cd /proc/" + std::to_string(pid) + "/fd; readlink 0 1 2"), "/dev/null\n/dev/null\n/dev/null\n");
    ::kill(pid, SIGHUP);
    EXPECT_TRUE(bus.call("vardStatus").ok());
    ::kill(pid, SIGTERM);
    EXPECT_TRUE(waitUntil([&] { return !bus.owned() && !exists("/run/vard/vard_service.pid"); }));
}

} // namespace
