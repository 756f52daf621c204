// The ends of a session: whoever causes it, it takes the same road and leaves nothing.
#include "service.h"

#include <csignal>

namespace {

using namespace Test;

class SessionEnd : public ServiceTest {
protected:
    void expectEnd(Signals& signals) {
        EXPECT_EQ(signals.upTo("signalSessionShutdown"),
                  (std::vector<Signal>{{"signalSessionDisconnected", {33}}, {"signalSessionShutdown", {33}}}));
        expectNothingLeft();
        EXPECT_EQ(bus.session(33), "{}");
        EXPECT_TRUE(waitUntil([] { return processes("", "alice").empty(); })) << shell("ps -u alice -f").text;
    }
};

TEST_F(SessionEnd, EveryCauseEndsItAllAndFreesTheDisplay) {
    start();
    Signals signals;
    const std::vector<std::function<void(const Json::Value&)>> causes{
        [&](const auto&) { EXPECT_EQ(bus.call("vardSessionShutdown", "u", 33U).number, 1); },
        [](const auto& session) { ::kill(session["pid1"].asInt(), SIGKILL); },
        [](const auto& session) { ::kill(session["pid2"].asInt(), SIGTERM); },
        [](const auto&) { mustRun("pkill -x xterm"); },
        [](const auto& session) { ::kill(session["pid2"].asInt(), SIGKILL); },
        [](const auto&) { mustRun("pkill -KILL -u alice"); },
        [&](const auto&) { bus.call("vardSessionDurationLimit", "uu", 33U, 1U); },
    };
    for (const auto& cause : causes) {
        ASSERT_EQ(bus.login("alice"), 33);
        signals.upTo("signalProxyAllowConnection");
        cause(info(33));
        expectEnd(signals);
    }
    EXPECT_TRUE(journal.waitFor("durationLimitSessionsWatcher: session stopped, id: 0x00000021, display: 33"));
    EXPECT_TRUE(journal.audit("VARD:SessionLogout=\"alice\"", "terminal=:33 res=success", causes.size()));
}

TEST_F(SessionEnd, SeamlessSessionEndsWhenItsClientStaysAway) {
    writeFile("/etc/vard/programs.json", R"([{"name":"Clock","path":"/usr/bin/xclock"}])");
    start(testConfig({{"session:path", "/usr/bin/xterm"}, {"seamless:timeout", 1}}));
    ASSERT_EQ(bus.call("busProgramRequest", "sssqqs", "alice", "", "secret", 640, 480, "Clock").number, 33);
    Signals signals;
    const int transport = launch("sleep 100000");
    bus.call("proxySessionConnected", "uus", 33U, static_cast<uint32_t>(transport), "10.1.2.3");
    signals.upTo("signalSessionConnected");
    ::kill(transport, SIGKILL);
    EXPECT_EQ(signals.upTo("signalSessionDisconnected"), (std::vector<Signal>{{"signalSessionDisconnected", {33}}}));
    expectEnd(signals);
    EXPECT_TRUE(journal.waitFor("seamlessTimeoutWatcher: session stopped, id: 0x00000021, display: 33, time pass: "));
}

TEST_F(SessionEnd, StoppedServerKeepsTheDisplayUntilItIsKilledAndCleared) {
    Account bob("bob");
    start();
    Signals signals;
    ASSERT_EQ(bus.login("alice"), 33);
    const auto session = info(33);
    ::kill(session["pid1"].asInt(), SIGSTOP);
    ::kill(session["pid2"].asInt(), SIGTERM);
    signals.upTo("signalSessionShutdown");
    EXPECT_EQ(bus.login("bob"), 34);
    EXPECT_TRUE(journal.waitFor("startSession: display passed over: 33, an earlier session is still ending"));
    EXPECT_TRUE(journal.waitFor("stoppedChildsWatcher: child did not end, killed, pid: "));
    EXPECT_TRUE(waitUntil([] { return !exists("/tmp/.X11-unix/X33") && !exists("/tmp/.X33-lock"); }));
    EXPECT_EQ(bus.login("alice"), 33);
}

} // namespace
