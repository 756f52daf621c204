// The names of displays: whoever holds them before, beside or instead of the service denies nobody a login.
#include "attacker.h"

#include <csignal>
#include <set>

namespace {

using namespace Test;
using namespace std::chrono_literals;

class Squatters : public AttackTest {
protected:
    /// What mallory is told by each of some displays: connections, abstract names bound, and other errors.
    static std::map<std::string, int> tryAbstract(const std::string& call, int first, int last) {
        std::map<std::string, int> results;
        std::istringstream words(
            shell("runuser -u mallory -- perl -MSocket -MErrno -e 'for (" + std::to_string(first) + " .. " +
                  std::to_string(last) + ") { socket(my $s, AF_UNIX, SOCK_STREAM, 0); $! = 0; push @held, $s; print((" +
                  call +
                  "($s, pack(\"S\", 1) . \"\\0/tmp/.X11-unix/X$_\") ? \"done\" : "
                  "$!{ECONNREFUSED} ? \"refused\" : $!{EADDRINUSE} ? \"taken\" : \"other\"), \" \") }'")
                .text);
        for (std::string word; words >> word;) {
            ++results[word];
        }
        return results;
    }
    bool namesMallory() { return journal.has("uid: " + std::to_string(mallory.uid())); }
};

TEST_F(Squatters, IdleAbstractNameCostsOneDisplayAndIsNamed) {
    squat(33, 33, true, false);
    startWith();
    const auto sid = bus.login("alice");
    figure("idle abstract name, session", double(sid));
    EXPECT_GT(sid, 33);
    EXPECT_TRUE(waitUntil([&] { return namesMallory(); }, 5s)) << "the squatter is not named";
}

TEST_F(Squatters, AbstractNamesAreTheServicesAndLeadNowhere) {
    startWith();
    ASSERT_EQ(bus.login("alice"), 33);
    auto bound = tryAbstract("bind", 33, 54);
    auto reached = tryAbstract("connect", 33, 54);
    figure("abstract names that a user could bind", bound["done"]);
    figure("X servers that a user could reach by their abstract names", reached["done"]);
    EXPECT_EQ(bound["taken"], 22);
    EXPECT_EQ(reached["refused"], 22);
    const std::string client = "env DISPLAY=:33 XAUTHORITY=/run/vard/xauth_33 xrandr";
    EXPECT_EQ(shell("runuser -u alice -- " + client).status, 0) << "her own programs take the path";
}

TEST_F(Squatters, WhatIsPlantedInTheDirectoriesDeniesNoLogin) {
    squat(33, 54, false, true);
    for (int display = 33; display < 55; ++display) {
        const auto lock = "/tmp/.X" + std::to_string(display) + "-lock";
        mustRun("runuser -u mallory -- bash -c 'touch /tmp/.tX" + std::to_string(display) + "-lock; " +
                (display % 2 == 0 ? "mkdir -p " + lock + "/full'" : "printf \"%10d\\n\" $PPID >" + lock + "'"));
    }
    startWith();
    const auto sid = bus.login("alice");
    figure("22 sockets and locks, session", double(sid));
    EXPECT_GT(sid, 0);
    EXPECT_TRUE(waitUntil([&] { return namesMallory(); }, 5s)) << "the squatter is not named";
}

struct Loop {
    const char* name;
    const char* file;
    const char* command;
};

class Loops : public Squatters, public testing::WithParamInterface<Loop> {};

TEST_P(Loops, DenyNoLogin) {
    const Loop loop = GetParam();
    startWith();
    const auto users = people(10);
    attack(loop.command);
    ASSERT_TRUE(waitUntil([&] { return exists(loop.file); }, 10s));
    int64_t used = 0;
    int failed = 0;
    double slowest = 0;
    for (const auto& user : users) {
        int64_t sid = 0;
        slowest = std::max(slowest, timed([&] { sid = bus.login(user->name()); }));
        failed += sid < 0 ? 1 : 0;
        EXPECT_LE(sid, 35 + used++) << "the third display at the latest";
    }
    expectAtMost(loop.name + std::string(", logins that failed"), failed, 0);
    figure(loop.name + std::string(", slowest"), slowest);
}

// The X server's lock, the file that it makes its lock of, its compiled keymap, and its socket.
INSTANTIATE_TEST_SUITE_P(
    Files, Loops,
    testing::Values(
        Loop{"FirstLock", "/tmp/.tX33-lock", "while true; do : >/tmp/.tX33-lock; done 2>/dev/null"},
        Loop{"Keymap", "/tmp/server-33.xkm", "while true; do : >/tmp/server-33.xkm; done 2>/dev/null"},
        Loop{"LockAndSocket", "/tmp/.X11-unix/X34",
             "while true; do printf \"%10d\\n\" $$ >/tmp/.X33-lock; done 2>/dev/null & exec perl -MSocket -e "
             "\"for (;;) { socket(S, AF_UNIX, SOCK_STREAM, 0); unlink q(/tmp/.X11-unix/X34); "
             "bind(S, sockaddr_un(q(/tmp/.X11-unix/X34))) && listen(S, 5) }\""}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(Squatters, RootsOwnServerIsLeftAloneWhereverTheServersLive) {
    const int server = launch("Xvfb :33");
    ASSERT_TRUE(waitUntil([] { return exists("/tmp/.X11-unix/X33") && exists("/tmp/.X33-lock"); }, 10s));
    for (const bool own : {true, false}) {
        startWith({{"xvfb:netns", own}});
        EXPECT_EQ(bus.login("alice"), 34) << own;
        EXPECT_EQ(shell("DISPLAY=:33 xrandr").status, 0) << "root's server still answers";
        EXPECT_EQ(service->stop(), 0);
        EXPECT_EQ(shell("stat -c %U /tmp/.X33-lock /tmp/.X11-unix/X33").text, "root\nroot\n");
    }
    ::kill(server, SIGKILL);
}

} // namespace
