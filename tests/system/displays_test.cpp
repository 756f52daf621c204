// Which display a login gets: an existing session's, the next free one, or none.
#include "service.h"

#include <csignal>

namespace {

using namespace Test;

class Displays : public ServiceTest {};

TEST_F(Displays, SameProgramReusesTheSessionAnotherProgramGetsItsOwn) {
    writeFile("/tmp/programs.json", R"([{"name":"Clock","path":"/usr/bin/xclock"}])");
    auto config = testConfig();
    config["session:programs"] = "/tmp/programs.json";
    start(config);
    Signals signals;
    ASSERT_EQ(bus.login("alice", 640, 480), 33);
    signals.upTo("signalProxyAllowConnection");
    const int server = info(33)["pid1"].asInt();
    EXPECT_EQ(bus.call("busSessionRequest", "ssyqq", "alice", "not-the-password", 8, 640, 480).number, 33);
    EXPECT_EQ(signals.upTo("signalProxyAllowConnection").back().args, (std::vector<uint32_t>{33, alice.uid()}));
    EXPECT_EQ(info(33)["pid1"].asInt(), server);
    EXPECT_TRUE(journal.waitFor("startSession: session found, session id: 0x00000021, display: 33"));
    const auto program =
        bus.call("vardSessionRequest", "s",
                 R"({"username":"alice","password":"x","program":"Clock","sec:tls":false,"domain":"d"})");
    EXPECT_EQ(program.number, 34);
    EXPECT_EQ(info(34)["xsession"].asString(), "/usr/bin/xclock");
    EXPECT_FALSE(info(34)["sec:tls"].asBool());
    EXPECT_TRUE(info(34)["sec:rdp"].asBool());
    EXPECT_EQ(info(34)["domain"].asString(), "d");
}

TEST_F(Displays, LeftoversOfAKilledServerDoNotStandInTheWay) {
    // A SIGKILLed server of another user leaves its socket and a lock that alice may not remove.
    Account mallory("mallory");
    mustRun(
        "runuser -u mallory -- sh -c 'Xvfb :33 & until [ -S /tmp/.X11-unix/X33 ]; do sleep 0.05; done; kill -9 $!; "
        "wait $!; true'");
    ASSERT_TRUE(exists("/tmp/.X33-lock") && exists("/tmp/.X11-unix/X33"));
    mustRun("runuser -u mallory -- touch /tmp/server-33.xkm"); // its compiled keymap, when it is killed early
    start();
    ASSERT_EQ(bus.login("alice"), 33);
    EXPECT_EQ(shell("stat -c '%a %U' /tmp/.X11-unix/X33").text, "700 alice\n");
    // The same with our own server, and the same user at the next try.
    Signals signals;
    ::kill(info(33)["pid1"].asInt(), SIGKILL);
    signals.upTo("signalSessionShutdown");
    EXPECT_EQ(bus.login("alice"), 33) << "at the first try";
    EXPECT_EQ(shell("stat -c '%a %U' /tmp/.X11-unix/X33").text, "700 alice\n");
}

TEST_F(Displays, OccupiedDisplaysArePassedOver) {
    Account mallory("mallory");
    // A live foreign server, a squatter on an abstract name, and a directory in the socket's place.
    mustRun(
        "runuser -u mallory -- sh -c 'Xvfb :33 >/dev/null 2>&1 & until [ -S /tmp/.X11-unix/X33 ]; do sleep 0.05; "
        "done'");
    mustRun(
        "runuser -u mallory -- perl -MSocket -e 'socket(S,AF_UNIX,SOCK_STREAM,0); bind(S,pack(\"S\",1).\"\\0/tmp/"
        ".X11-unix/X34\") or die; listen(S,5); if (fork) { exit } close STDOUT; close STDERR; sleep 1000' 2>&1");
    mustRun("runuser -u mallory -- mkdir -p /tmp/.X11-unix/X35/x");
    mustRun(
        "touch /home/mallory/victim; chmod 666 /home/mallory/victim; ln -s /home/mallory/victim /tmp/.X11-unix/X36");
    start();
    EXPECT_EQ(bus.login("alice"), 36);
    for (const char* display : {"33", "34", "35"}) {
        EXPECT_TRUE(journal.waitFor(std::string("startSession: display passed over: ") + display));
    }
    EXPECT_EQ(shell("stat -c %a /home/mallory/victim").text, "666\n") << "the link was not followed";
    EXPECT_EQ(shell("stat -c %F /tmp/.X11-unix/X36").text, "socket\n");
    mustRun("rm -r /tmp/.X11-unix/X35");
}

TEST_F(Displays, EmptyRangeIsAFullHouse) {
    auto config = testConfig();
    config["display:min"] = 40;
    config["display:max"] = 40;
    start(config);
    EXPECT_EQ(bus.login("alice"), -1);
    EXPECT_TRUE(journal.waitFor("startSession: full house"));
    EXPECT_FALSE(journal.has("createXauthFile"));
}

} // namespace
