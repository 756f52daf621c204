// Which display a login gets: an existing session's, or the next free one.
#include "service.h"

#include <csignal>

namespace {

using namespace Test;

class Displays : public ServiceTest {};

std::string socket(int64_t display) {
    return shell("stat -c '%a %U %F %G' /tmp/.X11-unix/X" + std::to_string(display)).text;
}

TEST_F(Displays, SameProgramReusesTheSessionAnotherProgramGetsItsOwn) {
    writeFile("/etc/vard/programs.json", R"([{"name":"Clock","path":"/usr/bin/xclock"}])");
    start();
    Signals signals;
    ASSERT_EQ(bus.login("alice", 640, 480), 33);
    signals.upTo("signalProxyAllowConnection");
    const int server = info(33)["pid1"].asInt();
    EXPECT_EQ(bus.call("busSessionRequest", "ssyqq", "alice", "not-the-password", 8, 640, 480).number, 33);
    EXPECT_EQ(signals.upTo("signalProxyAllowConnection"),
              (std::vector<Signal>{{"signalProxyAllowConnection", {33, alice.uid()}}}));
    EXPECT_EQ(info(33)["pid1"].asInt(), server);
    EXPECT_TRUE(journal.waitFor("startSession: session found, session id: 0x00000021, display: 33"));
    const auto* request = R"({"username":"alice","password":"x","program":"Clock","sec:tls":false})";
    EXPECT_EQ(bus.call("vardSessionRequest", "s", request).number, 34);
    EXPECT_TRUE(!info(34)["sec:tls"].asBool() && info(34)["sec:rdp"].asBool());
}

TEST_F(Displays, LeftoversOfAKilledServerDoNotStandInTheWay) {
    // What a server of another user leaves when it is killed: alice may not remove it.
    const Account mallory("mallory");
    const auto plantDead = [] {
        mustRun(R"(runuser -u mallory -- perl -MSocket -e 'umask 0; socket(my $s, AF_UNIX, SOCK_STREAM, 0);
            bind($s, sockaddr_un("/tmp/.X11-unix/X33")) or die;
            for ("/tmp/.X33-lock", "/tmp/server-33.xkm") { open(my $f, ">", $_); printf $f "%10d\n", 4194304 }')");
        return exists("/tmp/.X33-lock");
    };
    ASSERT_TRUE(plantDead());
    start();
    EXPECT_FALSE(exists("/tmp/.X33-lock") || exists("/tmp/.X11-unix/X33")) << "nothing stays of an earlier instance";
    ASSERT_TRUE(plantDead());
    Signals signals;
    ASSERT_EQ(bus.login("alice"), 33);
    EXPECT_EQ(socket(33), "760 alice socket vard-xauth\n");
    ::kill(info(33)["pid1"].asInt(), SIGKILL); // the same with our own server
    signals.upTo("signalSessionShutdown");
    const auto next = bus.login("alice");
    EXPECT_EQ(socket(next), "760 alice socket vard-xauth\n") << "at the first try, there or on the next display";
    EXPECT_TRUE(next == 33 || waitUntil([] { return !exists("/tmp/.X11-unix/X33") && !exists("/tmp/.X33-lock"); }));
}

} // namespace
