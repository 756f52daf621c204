// Processes that their user stops, or that hang: those who wait for them, and for how long.
#include "attacker.h"

#include <csignal>

namespace {

using namespace Test;
using namespace std::chrono_literals;

class StoppedProcesses : public AttackTest {
protected:
    /// Three requests of mallory's, each of which needs a tool and the hash, and what others may wait meanwhile.
    void threeRequests(const std::vector<double>& limits) {
        Bystander others;
        uint16_t width = 640;
        for (const double limit : limits) {
            EXPECT_GT(bus.login("mallory", width, 480), 0);
            EXPECT_LE(others.longest(), limit);
            width = static_cast<uint16_t>(width + 100);
        }
    }
};

TEST_F(StoppedProcesses, StoppedToolsAreEndedAtOnceAndHangingOnesHaveTheirTimeOnce) {
    const std::string stop = "[ ! -e /tmp/stop ] || kill -STOP $$; sleep 100000 & wait";
    startWith({{"xrandr:path", program("xrandr", stop)}, {"hash:path", program("hash", stop)}});
    writeFile("/tmp/stop", "");
    threeRequests({2.5, 2.5, 2.5});
    mustRun("rm /tmp/stop; pkill -KILL -u mallory");
    EXPECT_LE(untilEnded(33), 5);
    service->stop();
    startWith({{"xrandr:path", program("xrandr", stop)}, {"hash:path", program("hash", stop)}});
    threeRequests({7, 1.5, 1.5});
    EXPECT_TRUE(waitUntil([] { return processes("sleep 100000").empty(); }, 3s)) << "the whole group goes";
}

// A bus of the user's that takes connections and never speaks holds each tool that asks it; another program of his is
// another session.
TEST_F(StoppedProcesses, SilentBusOfTheUsersHoldsNobodyInAnySession) {
    writeFile("/etc/vard/programs.json",
              R"([{"name":"One","path":"/usr/bin/xclock"},{"name":"Two","path":"/usr/bin/xeyes"},
        {"name":"Three","path":"/usr/bin/xterm"}])");
    startWith();
    const std::string directory = "/run/user/" + std::to_string(mallory.uid());
    mustRun("install -d -o mallory -m 700 " + directory);
    attack("exec perl -MSocket -e \"socket(S, AF_UNIX, SOCK_STREAM, 0); bind(S, sockaddr_un(q(" + directory +
           "/bus))) or die; listen(S, 50); sleep 100000\"");
    ASSERT_TRUE(waitUntil([&] { return exists(directory + "/bus"); }, 10s));
    Bystander others;
    double limit = 7;
    for (const std::string name : {"One", "Two", "Three"}) {
        const auto request = R"({"username":"mallory","password":"x","program":")" + name + "\"}";
        EXPECT_GT(bus.call("vardSessionRequest", "s", request.c_str()).number, 0);
        EXPECT_LE(others.longest(), limit) << name;
        limit = 2;
    }
}

TEST_F(StoppedProcesses, StoppedServerOfAnEndedSessionIsPassedOverWithoutWaiting) {
    startWith();
    const auto alone = logins();
    const auto sid = bus.login("mallory");
    ASSERT_GT(sid, 0);
    ::kill(info(sid)["pid1"].asInt(), SIGSTOP);
    ::kill(info(sid)["pid2"].asInt(), SIGTERM);
    EXPECT_LE(untilEnded(sid), 10);
    expectUndelayed(alone);
    EXPECT_TRUE(waitUntil([&] { return !exists("/tmp/.X11-unix/X" + std::to_string(sid)); })) << "cleared in the end";
}

// Whatever starts under his identity stops within microseconds, the service's own children before they execute too.
TEST_F(StoppedProcesses, StoppingEverythingAllTheTimeHoldsOthersOnce) {
    startWith();
    attack("exec perl -e \"kill(q(STOP), -1) while 1\"");
    Bystander others;
    for (const double limit : {7, 2, 2}) {
        bus.login("mallory", 800, 600); // whatever it answers
        EXPECT_LE(others.longest(), limit);
    }
}

// Before it has its socket, or when it has one and nobody was answered yet.
class Starting : public StoppedProcesses, public testing::WithParamInterface<const char*> {};

TEST_P(Starting, ServerThatIsStoppedHoldsOthersOnce) {
    const std::string body = "Xvfb \"$@\" & " + std::string(GetParam()) + " kill -STOP $! $$";
    startWith({{"xvfb:path", program("server", body, "exec Xvfb \"$@\"")}});
    ASSERT_GT(bus.login("alice"), 0);
    Bystander others;
    double all = 0;
    for (int request = 0; request < 3; ++request) {
        bus.login("mallory"); // whatever it answers
        all += others.longest();
    }
    EXPECT_LT(all, 7) << "once in a minute, in whichever request the stop is seen late";
}

INSTANTIATE_TEST_SUITE_P(Moments, Starting,
                         testing::Values("", "until [ -S /tmp/.X11-unix/X${1#:} ]; do sleep 0.01; done;"));

// Two desktops that ignore SIGTERM, each with a background of its own that does too.
TEST_F(StoppedProcesses, WhatLosesItsSupervisorEndsWithTheSession) {
    const std::string body =
        "trap \"\" TERM; setsid sleep 54321 & kill -$(cat /tmp/how) $PPID; touch /tmp/done; exec sleep 54321";
    startWith({{"session:path", program("desktop", body, "exec sleep 12345")}});
    EXPECT_EQ(bus.login("alice"), 33);
    for (const std::string signal : {"KILL", "STOP"}) {
        writeFile("/tmp/how", signal);
        mustRun("rm -f /tmp/done");
        const auto sid = bus.login("mallory");
        ASSERT_TRUE(waitUntil([] { return exists("/tmp/done"); }));
        bus.call("vardSessionShutdown", "u", static_cast<uint32_t>(sid));
        EXPECT_LE(untilGone("mallory"), 16) << signal;
    }
    EXPECT_FALSE(processes("sleep 12345", "alice").empty()) << "another's session goes on";
}

} // namespace
