// Sessions that end because their time is up.
#include "service.h"

#include <csignal>
#include <ctime>

namespace {

using namespace Test;

class Limits : public ServiceTest {};

TEST_F(Limits, SessionOlderThanItsLimitEnds) {
    start();
    Signals signals;
    ASSERT_EQ(bus.login("alice"), 33);
    signals.upTo("signalProxyAllowConnection");
    const auto begin = info(33)["start"].asInt64();
    bus.call("vardSessionDurationLimit", "uu", 33U, 1U);
    EXPECT_EQ(signals.upTo("signalSessionShutdown"),
              (std::vector<Signal>{{"signalSessionDisconnected", {33}}, {"signalSessionShutdown", {33}}}));
    EXPECT_GE(std::time(nullptr) - begin, 2) << "ended at an age equal to its limit";
    EXPECT_TRUE(journal.waitFor("durationLimitSessionsWatcher: session stopped, id: 0x00000021, display: 33"));
    expectNothingLeft();
}

TEST_F(Limits, SeamlessSessionEndsWhenItsClientStaysAway) {
    auto config = testConfig();
    config["session:path"] = "/usr/bin/xterm";
    config["seamless:timeout"] = 1;
    writeFile("/etc/vard/programs.json", R"([{"name":"Clock","path":"/usr/bin/xclock"}])");
    start(config);
    Signals signals;
    ASSERT_EQ(bus.login("alice"), 33);
    ASSERT_EQ(bus.call("busProgramRequest", "sssqqs", "alice", "", "secret", 640, 480, "Clock").number, 34);
    const int transport = std::stoi(mustRun("sleep 100000 >/dev/null 2>&1 & echo $!"));
    for (const uint32_t sid : {33U, 34U}) {
        bus.call("proxySessionConnected", "uus", sid, static_cast<uint32_t>(transport), "10.1.2.3");
    }
    signals.upTo("signalSessionConnected");
    ::kill(transport, SIGKILL); // the client of both
    const auto all = signals.upTo("signalSessionShutdown");
    EXPECT_EQ(all.back().args, std::vector<uint32_t>{34});
    EXPECT_TRUE(journal.waitFor("seamlessTimeoutWatcher: session stopped, id: 0x00000022, display: 34, time pass: "));
    EXPECT_EQ(info(33)["pid3"], 0) << "the desktop waits for its client";
    EXPECT_EQ(bus.call("zabbixSessionsTotal").number, 1);
}

} // namespace
