// The bus interface as callers find it, and what hostile callers can do to it.
#include "service.h"

#include <fstream>
#include <thread>

namespace {

using namespace Test;

class Interface : public ServiceTest {
protected:
    Interface() { start(); }
};

TEST_F(Interface, IsTheOneThatCallersAreWrittenFor) {
    const auto live = bus.callInterface("org.freedesktop.DBus.Introspectable", "Introspect").text;
    writeFile("/tmp/live.xml", live);
    // Every name, type and place in it is a promise: whoever breaks one on purpose writes the new sum here.
    EXPECT_EQ(mustRun("sed -n '/\"ru.korvex.vard\"/,/interface>/p' /tmp/live.xml | tr -d '[:space:]' | sha256sum"),
              "5322c5ded2254afc6de369f9e153ce363b7255270ecf42f20f11553b7b07f3e1  -\n")
        << live;
}

TEST_F(Interface, TellsItsVersionAndTheLoadOfTheMachine) {
    EXPECT_EQ(bus.call("vardTest").text, "VARD SERVICE v.0.3.rel2 build(202306200649)");
    double oneMinute = 0;
    double fiveMinutes = 0;
    std::ifstream("/proc/loadavg") >> oneMinute >> fiveMinutes;
    // The kernel may take a new figure between the two readings.
    EXPECT_NEAR(bus.call("vardLoadAverage").real, fiveMinutes * 100 / std::thread::hardware_concurrency(), 5);
}

TEST_F(Interface, ChecksAPasswordWithoutASession) {
    EXPECT_EQ(bus.call("vardCheckAuthUser", "sss", "alice", "secret", "vard").number, 1);
    EXPECT_EQ(bus.call("vardCheckAuthUser", "sss", "alice", "wrong", "vard").number, 0);
}

TEST_F(Interface, HostileMessagesGetAnErrorAndTheServiceLives) {
    const std::string errors = "org.freedesktop.DBus.Error.";
    // Under our own policy such a message does not even arrive.
    EXPECT_EQ(bus.callInterface(nullptr, "vardStatus").error, errors + "AccessDenied");
    const LoosePolicy loose;
    EXPECT_EQ(bus.callInterface(nullptr, "vardStatus").error, errors + "UnknownInterface");
    EXPECT_EQ(bus.call("noSuchMethod").error, errors + "UnknownMethod");
    EXPECT_EQ(bus.call("vardStatus", "s", "surplus").error, errors + "InvalidArgs");
    EXPECT_EQ(bus.call("vardSessionInfoJson").error, errors + "InvalidArgs");
    EXPECT_EQ(bus.call("busSessionRequest", "ssqqy", "a", "b", 1, 2, 3).error, errors + "InvalidArgs");
    EXPECT_TRUE(bus.call("vardStatus").ok());
}

TEST_F(Interface, NothingIsDoneForAnUnknownSessionOrUser) {
    EXPECT_EQ(bus.call("vardConnectRdpTransport", "uu", 33U, 5U).number, 0);
    bus.call("proxyListenStarted", "ub", 33U, 1);
    EXPECT_EQ(bus.call("vardCheckProxyListen").number, 0);
    EXPECT_EQ(bus.call("busSessionShutdown", "s", "nobody").number, 0);
    EXPECT_TRUE(journal.waitFor("busSessionShutdown: session not found: nobody"));
}

} // namespace
