// The ends of a session: whoever causes it, it takes the same road and leaves nothing.
#include "service.h"

#include <csignal>
#include <set>

namespace {

using namespace Test;

class SessionEnd : public ServiceTest {
protected:
    void expectEnd(Signals& signals, uint32_t sid) {
        EXPECT_EQ(signals.upTo("signalSessionShutdown"),
                  (std::vector<Signal>{{"signalSessionDisconnected", {sid}}, {"signalSessionShutdown", {sid}}}));
        expectNothingLeft();
        EXPECT_EQ(bus.session(sid), "{}");
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
    };
    for (const auto& cause : causes) {
        ASSERT_EQ(bus.login("alice"), 33);
        signals.upTo("signalProxyAllowConnection");
        cause(info(33));
        expectEnd(signals, 33);
        EXPECT_TRUE(waitUntil([] { return processes("", "alice").empty(); })) << shell("ps -u alice -f").text;
    }
    EXPECT_TRUE(journal.audit("VARD:SessionLogout=\"alice\"", "terminal=:33 res=success", causes.size()));
    EXPECT_EQ(bus.call("vardSessionShutdown", "u", 33U).number, 0);
    EXPECT_TRUE(journal.waitFor("vardSessionShutdown: session not found: 0x00000021"));
}

TEST_F(SessionEnd, CrashOfTheServiceLeavesNoProgram) {
    auto config = testConfig();
    config["session:path"] = alice.script("program", "exec sleep 12345"); // no client of the X server
    start(config);
    ASSERT_EQ(bus.login("alice"), 33);
    ASSERT_TRUE(waitUntil([] { return !processes("sleep 12345").empty(); }));
    ::kill(service->pid(), SIGKILL);
    service->wait();
    EXPECT_TRUE(waitUntil([] { return processes("sleep 12345").empty() && processes("vard_manager").empty(); }));
}

TEST_F(SessionEnd, WhatTheProgramLeftBehindEndsWithIt) {
    auto config = testConfig();
    config["session:path"] = alice.script("program", "setsid sh -c 'trap \"\" TERM; sleep 54321' & exec sleep 12345");
    start(config);
    Signals signals;
    ASSERT_EQ(bus.login("alice"), 33);
    signals.upTo("signalProxyAllowConnection");
    ASSERT_TRUE(waitUntil([] { return !processes("sleep 54321").empty() && !processes("sleep 12345").empty(); }));
    bus.call("vardSessionShutdown", "u", 33U);
    expectEnd(signals, 33);
    EXPECT_TRUE(processes("sleep").empty()) << shell("ps axf").text;
}

TEST_F(SessionEnd, ServerThatOutlivesItsSessionKeepsTheDisplayUntilItIsCleared) {
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
    ::kill(session["pid1"].asInt(), SIGKILL);
    EXPECT_TRUE(waitUntil([] { return !exists("/tmp/.X11-unix/X33") && !exists("/tmp/.X33-lock"); }));
    EXPECT_EQ(bus.login("alice"), 33);
}

TEST_F(SessionEnd, StoppedServerIsKilledAfterTenSeconds) {
    start();
    Signals signals;
    ASSERT_EQ(bus.login("alice"), 33);
    signals.upTo("signalProxyAllowConnection");
    ::kill(info(33)["pid1"].asInt(), SIGSTOP);
    EXPECT_EQ(bus.call("vardSessionShutdown", "u", 33U).number, 1);
    EXPECT_TRUE(bus.call("vardStatus").ok());
    expectEnd(signals, 33);
    EXPECT_TRUE(journal.has("stoppedChildsWatcher: child did not end, killed, pid: "));
}

TEST_F(SessionEnd, TwentyTwoSessionsEndWithinSixSecondsOfAStop) {
    std::vector<std::unique_ptr<Account>> users;
    start();
    std::set<int64_t> displays;
    for (int i = 0; i < 22; ++i) {
        users.push_back(std::make_unique<Account>("user" + std::to_string(i)));
        displays.insert(bus.login(users.back()->name()));
    }
    EXPECT_EQ(displays.size(), 22U);
    EXPECT_EQ(*displays.begin(), 33);
    EXPECT_EQ(*displays.rbegin(), 54) << "the upper end is never handed out";
    EXPECT_EQ(bus.login("alice"), -1);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(service->stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(6));
    EXPECT_TRUE(processes("Xvfb").empty());
    EXPECT_TRUE(processes("xterm").empty());
    EXPECT_EQ(shell("ls -A /run/vard /tmp/.X11-unix | grep -v :").text, "\n");
    EXPECT_EQ(shell("ps ax -o stat= | grep -c Z").text, "0\n");
}

} // namespace
