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
            expectAtMost("others waited", others.longest(), limit);
            width = static_cast<uint16_t>(width + 100);
        }
    }
};

TEST_F(StoppedProcesses, StoppedToolsAreEndedAtOnce) {
    startWith({{"xrandr:path", program("xrandr", "kill -STOP $$")}, {"hash:path", program("hash", "kill -STOP $$")}});
    threeRequests({2.5, 2.5, 2.5});
}

TEST_F(StoppedProcesses, HangingToolsHaveTheirTimeOnceAndGoWithTheirGroups) {
    const std::string hang = "sleep 100000 & wait";
    startWith({{"xrandr:path", program("xrandr", hang)}, {"hash:path", program("hash", hang)}});
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
    ASSERT_GT(bus.login("alice"), 0);
    const std::string directory = "/run/user/" + std::to_string(mallory.uid());
    mustRun("mkdir -p " + directory + " && chown mallory: " + directory + " && chmod 700 " + directory);
    attack("exec perl -MSocket -e \"socket(S, AF_UNIX, SOCK_STREAM, 0); bind(S, sockaddr_un(q(" + directory +
           "/bus))) or die; listen(S, 50); sleep 100000\"");
    ASSERT_TRUE(waitUntil([&] { return exists(directory + "/bus"); }, 10s));
    Bystander others;
    double limit = 7;
    for (const char* name : {"One", "Two", "Three"}) {
        const auto request = R"({"username":"mallory","password":"x","program":")" + std::string(name) + "\"}";
        EXPECT_GT(bus.call("vardSessionRequest", "s", request.c_str()).number, 0);
        expectAtMost(std::string("silent bus, program ") + name + ", others waited", others.longest(), limit);
        limit = 2;
    }
}

TEST_F(StoppedProcesses, StoppedServerOfAnEndedSessionIsPassedOverWithoutWaiting) {
    startWith();
    const auto users = people(5);
    const double alone = median(logins(users, "alone"));
    const auto sid = bus.login("mallory");
    ASSERT_GT(sid, 0);
    ::kill(info(sid)["pid1"].asInt(), SIGSTOP);
    ::kill(info(sid)["pid2"].asInt(), SIGTERM);
    untilEnded(static_cast<uint32_t>(sid), 10s);
    expectUndelayed(logins(users, "beside a stopped server"), alone);
}

// Whatever starts under his identity stops within microseconds, the service's own children before they execute too.
TEST_F(StoppedProcesses, StoppingEverythingAllTheTimeHoldsOthersOnce) {
    startWith();
    attack("exec perl -e \"kill(q(STOP), -1) while 1\"");
    Bystander others;
    double limit = 7;
    for (const char* which : {"first", "second", "third"}) {
        bus.login("mallory", 800, 600); // whatever it answers
        expectAtMost(std::string("everything stopped, others waited, ") + which, others.longest(), limit);
        limit = 2;
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
    for (const char* which : {"1", "2", "3"}) {
        bus.login("mallory"); // whatever it answers
        const double wait = others.longest();
        all += wait;
        figure("server stopped at its start, \"" + std::string(GetParam()) + "\", request " + which + ", others waited",
               wait);
    }
    EXPECT_LT(all, 7) << "once in a minute, in whichever request the stop is seen late";
}

INSTANTIATE_TEST_SUITE_P(Moments, Starting,
                         testing::Values("", "until [ -S /tmp/.X11-unix/X${1#:} ]; do sleep 0.01; done;"),
                         [](const auto& test) { return std::string(*test.param == 0 ? "Early" : "Late"); });

// Its desktop ignores SIGTERM and has a background of its own that does too.
class Supervisor : public StoppedProcesses, public testing::WithParamInterface<const char*> {};

TEST_P(Supervisor, WhatLosesItsSupervisorEndsWithTheSession) {
    const std::string signal = GetParam();
    const std::string body = "trap \"\" TERM; setsid sleep 54321 & kill -" + signal + " $PPID; exec sleep 54321";
    startWith({{"session:path", program("desktop", body, "exec sleep 12345")}});
    ASSERT_EQ(bus.login("mallory"), 33);
    EXPECT_EQ(bus.login("alice"), 34);
    bus.call("vardSessionShutdown", "u", 33U);
    const double gone = untilGone("mallory", 25s);
    expectAtMost("supervisor " + signal + ", user's processes after the session's end (25: for ever)", gone, 16);
    EXPECT_FALSE(processes("sleep 12345", "alice").empty()) << "another's session goes on";
}

INSTANTIATE_TEST_SUITE_P(Signals, Supervisor, testing::Values("KILL", "STOP"));

} // namespace
