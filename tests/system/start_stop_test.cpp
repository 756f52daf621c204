// Starting and stopping: arguments, checks, the pid file, signals, a second instance, a bus that goes away.
#include "service.h"

#include <csignal>

namespace {

using namespace Test;

class StartStop : public ServiceTest {
protected:
    static Output program(const std::string& arguments, const std::string& before = "") {
        return shell("cd /tmp && " + before + " " + Service::program + " " + arguments);
    }
};

TEST_F(StartStop, RefusesWhatItCannotRunWith) {
    const std::string usage = std::string("usage: ") + Service::program + "--config <path> [--background]\n";
    for (const char* arguments : {"-h", "--config", "--background x", "--config a --config"}) {
        const auto output = program(arguments);
        EXPECT_EQ(output.text, usage) << arguments;
        EXPECT_EQ(output.status, 0);
    }
    EXPECT_EQ(program("").text, "config not found\n"); // the default is a file in the current directory
    EXPECT_EQ(program("").status, 1);
    const std::string asUser = "runuser -u alice --";
    EXPECT_EQ(program("--config /tmp/missing", asUser).text, "config not found\n");
    writeFile("/tmp/empty.json", "{}");
    const auto refused = program("--config /tmp/missing --config /tmp/empty.json", asUser); // the last one counts
    EXPECT_EQ(refused.text, "root privileges required to run\n");
    EXPECT_EQ(refused.status, 1);
}

TEST_F(StartStop, BrokenConfigurationsEndTheStartWithTheirReason) {
    writeFile("/tmp/broken.json", "[1]");
    const auto output = program("--config /tmp/broken.json");
    EXPECT_EQ(output.text, "exception: DBusService\n");
    EXPECT_EQ(output.status, 0);
    EXPECT_TRUE(journal.waitFor("DBusService: json not object, file: /tmp/broken.json"));
    writeFile("/tmp/broken.json", "{ \"a\"");
    EXPECT_EQ(program("--config /tmp/broken.json").text.substr(0, 11), "exception: ");
    EXPECT_FALSE(exists("/run/vard/vard_service.pid"));
}

TEST_F(StartStop, KeepsAPidFileWhileItRunsAndSaysGoodbyeOnce) {
    mustRun("mkdir -m 0700 /run/vard && echo leftover-of-an-earlier-run > /run/vard/vard_service.pid");
    start();
    EXPECT_EQ(readFile("/run/vard/vard_service.pid"), std::to_string(service->pid()));
    EXPECT_EQ(shell("stat -c %a /run/vard").text, "755\n");
    EXPECT_TRUE(journal.waitFor("start: started, version VARD SERVICE v.0.3.rel2 build(202306200649), pid: " +
                                std::to_string(service->pid()) + ", config: `" + Service::configFile + "'"));
    Signals signals;
    ::kill(service->pid(), SIGTERM);
    ::kill(service->pid(), SIGTERM); // a second one changes nothing
    EXPECT_EQ(signals.upTo("signalVardStopped"), (std::vector<Signal>{{"signalVardStopped", {}}}));
    EXPECT_EQ(service->wait(), 0);
    EXPECT_TRUE(journal.waitFor("start: shutdown complete"));
    EXPECT_FALSE(exists("/run/vard/vard_service.pid"));
    EXPECT_FALSE(bus.owned());
}

TEST_F(StartStop, StopsOnRequestOfTheBus) {
    start();
    Signals signals;
    const auto reply = bus.call("busServiceShutdown");
    EXPECT_TRUE(reply.ok());
    EXPECT_EQ(reply.type, "");
    signals.upTo("signalVardStopped");
    EXPECT_EQ(service->wait(), 0);
}

TEST_F(StartStop, SecondInstanceRefusesBeforeItTouchesAnything) {
    start();
    const auto second = program(std::string("--config ") + Service::configFile);
    EXPECT_EQ(second.status, 0);
    EXPECT_NE(second.text.find("exception: ru.korvex.vard is owned by another instance"), std::string::npos)
        << second.text;
    EXPECT_EQ(readFile("/run/vard/vard_service.pid"), std::to_string(service->pid()));
    EXPECT_TRUE(bus.call("vardStatus").ok());
}

TEST_F(StartStop, BackgroundServiceIgnoresInterruptsAndStopsOnTermination) {
    const auto pid = [] { return std::stoi(readFile("/run/vard/vard_service.pid")); };
    writeFile("/tmp/background.json", testConfig().toStyledString());
    EXPECT_EQ(program("--background --config /tmp/background.json </dev/null >/dev/null 2>&1").status, 0);
    ASSERT_TRUE(waitUntil([&] { return bus.call("vardStatus").ok(); }));
    ::kill(pid(), SIGINT);
    EXPECT_EQ(mustRun("grep SigIgn /proc/" + std::to_string(pid()) + "/status | grep -c '[2367abef]$'"), "1\n");
    EXPECT_TRUE(bus.call("vardStatus").ok());
    ::kill(pid(), SIGTERM);
    EXPECT_TRUE(waitUntil([&] { return !bus.owned() && !exists("/run/vard/vard_service.pid"); }));
}

TEST_F(StartStop, StopSignalAtAnyMomentOfTheStartIsRemembered) {
    for (int milliseconds = 0; milliseconds < 60; milliseconds += 4) {
        Service early(testConfig(), false);
        shell("sleep 0.0" + std::string(milliseconds < 10 ? "0" : "") + std::to_string(milliseconds));
        const int status = early.stop(); // would wait for ever
        EXPECT_TRUE(status == 0 || status == 128 + SIGTERM) << status;
    }
}

TEST_F(StartStop, EndsInOrderWhenTheBusGoesAway) {
    start();
    ASSERT_GT(bus.login("alice"), 0);
    mustRun("pkill -x dbus-daemon");
    EXPECT_EQ(service->wait(), 0);
    EXPECT_TRUE(journal.waitFor("busAlive: connection to the system bus lost, stopping"));
    EXPECT_TRUE(journal.waitFor("start: shutdown complete"));
    EXPECT_TRUE(processes("Xvfb").empty());
    mustRun("rm -f /run/dbus/system_bus_socket; dbus-daemon --system --fork --nopidfile");
    const auto missing = program(std::string("--config ") + Service::configFile + " & sleep 0.2; kill $!");
    EXPECT_EQ(missing.text, "");
    bus = Bus();
}

} // namespace
