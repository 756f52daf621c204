// The names of displays: whoever holds them before, beside or instead of the service denies nobody a login.
#include "attacker.h"

#include <csignal>
#include <map>
#include <sstream>

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

TEST_F(Squatters, IdleAbstractNameCostsOneDisplayAndAllOthersAreTheServices) {
    squat(33, 33, true, false);
    startWith();
    const auto sid = bus.login("alice");
    EXPECT_GT(sid, 33);
    EXPECT_TRUE(waitUntil([&] { return namesMallory(); }, 5s)) << "the squatter is not named";
    EXPECT_EQ(tryAbstract("bind", 34, 54), (std::map<std::string, int>{{"taken", 21}}));
    EXPECT_EQ(tryAbstract("connect", 34, 54), (std::map<std::string, int>{{"refused", 21}}));
    const auto display = std::to_string(sid);
    const std::string client = "env DISPLAY=:" + display + " XAUTHORITY=/run/vard/xauth_" + display + " xrandr";
    EXPECT_EQ(shell("runuser -u alice -- " + client).status, 0) << "her own programs take the path";
}

TEST_F(Squatters, WhatIsPlantedInTheDirectoriesDeniesNoLogin) {
    squat(33, 54, false, true);
    mustRun(
        "runuser -u mallory -- bash -c 'for d in {33..54}; do touch /tmp/.tX$d-lock; l=/tmp/.X$d-lock; "
        "if [ $((d % 2)) = 0 ]; then mkdir -p $l/full; else printf \"%10d\\n\" $PPID >$l; fi; done'");
    startWith();
    EXPECT_GT(bus.login("alice"), 0);
    EXPECT_TRUE(waitUntil([&] { return namesMallory(); }, 5s)) << "the squatter is not named";
}

std::string socketOf(int64_t display) {
    return shell("stat -c '%a %U %F %G' /tmp/.X11-unix/X" + std::to_string(display)).text;
}

TEST_F(Squatters, LeftoversOfAKilledServerDoNotStandInTheWay) {
    // What a server of another user leaves when it is killed: alice may not remove it.
    const auto plantDead = [] {
        mustRun(R"(runuser -u mallory -- perl -MSocket -e 'umask 0; socket(my $s, AF_UNIX, SOCK_STREAM, 0);
            bind($s, sockaddr_un("/tmp/.X11-unix/X33")) or die;
            for ("/tmp/.X33-lock", "/tmp/server-33.xkm") { open(my $f, ">", $_); printf $f "%10d\n", 4194304 }')");
        return exists("/tmp/.X33-lock");
    };
    ASSERT_TRUE(plantDead());
    startWith();
    EXPECT_FALSE(exists("/tmp/.X33-lock") || exists("/tmp/.X11-unix/X33")) << "nothing stays of an earlier instance";
    ASSERT_TRUE(plantDead());
    Signals signals;
    ASSERT_EQ(bus.login("alice"), 33);
    EXPECT_EQ(socketOf(33), "760 alice socket vard-xauth\n");
    ::kill(info(33)["pid1"].asInt(), SIGKILL); // the same with our own server
    signals.upTo("signalSessionShutdown");
    const auto next = bus.login("alice");
    EXPECT_EQ(socketOf(next), "760 alice socket vard-xauth\n") << "at the first try, there or on the next display";
    EXPECT_TRUE(next == 33 || waitUntil([] { return !exists("/tmp/.X11-unix/X33") && !exists("/tmp/.X33-lock"); }));
}

// The X server's lock, the file that it makes its lock of, its compiled keymap, and its socket.
struct Loop {
    const char* file;
    const char* command;
};

class Loops : public Squatters, public testing::WithParamInterface<Loop> {};

TEST_P(Loops, DenyNoLogin) {
    startWith();
    attack(GetParam().command);
    ASSERT_TRUE(waitUntil([] { return exists(GetParam().file); }, 10s));
    for (int user = 0; user < 10; ++user) {
        people.push_back(std::make_unique<Account>("user" + std::to_string(user)));
        const auto sid = bus.login(people.back()->name());
        EXPECT_GT(sid, 0);
        EXPECT_LE(sid, 35 + user) << "the third display at the latest";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Files, Loops,
    testing::Values(
        Loop{"/tmp/.tX33-lock", "while true; do : >/tmp/.tX33-lock; done 2>/dev/null"},
        Loop{"/tmp/server-33.xkm", "while true; do : >/tmp/server-33.xkm; done 2>/dev/null"},
        Loop{"/tmp/.X11-unix/X34",
             "while true; do printf \"%10d\\n\" $$ >/tmp/.X33-lock; done 2>/dev/null & exec perl -MSocket -e "
             "\"for (;;) { socket(S, AF_UNIX, SOCK_STREAM, 0); unlink q(/tmp/.X11-unix/X34); "
             "bind(S, sockaddr_un(q(/tmp/.X11-unix/X34))) && listen(S, 5) }\""}));

TEST_F(Squatters, RootsOwnServerIsLeftAloneWhereverTheServersLive) {
    const int server = launch("Xvfb :33");
    ASSERT_TRUE(waitUntil([] { return exists("/tmp/.X11-unix/X33") && exists("/tmp/.X33-lock"); }, 10s));
    for (const bool own : {true, false}) {
        startWith({{"xvfb:netns", own}});
        EXPECT_EQ(bus.login("alice"), 34) << own;
        EXPECT_EQ(shell("DISPLAY=:33 xrandr").status, 0) << "root's server still answers";
        service->stop();
        EXPECT_EQ(shell("stat -c %U /tmp/.X33-lock /tmp/.X11-unix/X33").text, "root\nroot\n");
    }
    ::kill(server, SIGKILL);
}

} // namespace
