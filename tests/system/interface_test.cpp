// The bus interface as callers find it, and what hostile callers can do to it.
#include "service.h"

#include <fstream>
#include <regex>
#include <set>
#include <thread>

namespace {

using namespace Test;

class Interface : public ServiceTest {
protected:
    Interface() { start(); }
};

/// The interface's members and their arguments in the order of the text, each with its name, type and direction; "out"
/// is left out as what an argument is without one.
std::vector<std::set<std::string>> members(const std::string& xml) {
    const auto begin = xml.find("<interface name=\"ru.korvex.vard\"");
    const std::string text = xml.substr(begin, xml.find("</interface>", begin) - begin);
    const std::regex word(R"re(<[a-z]+|(name|type)="[^"]*"|direction="in")re");
    std::vector<std::set<std::string>> result;
    for (std::sregex_iterator it(text.begin(), text.end(), word), end; it != end; ++it) {
        if (it->str().starts_with('<')) {
            result.emplace_back();
        }
        result.back().insert(it->str());
    }
    return result;
}

TEST_F(Interface, LiveIntrospectionMatchesTheDescriptionInOrder) {
    const auto live = members(bus.callInterface("org.freedesktop.DBus.Introspectable", "Introspect").text);
    EXPECT_GT(live.size(), 100U);
    EXPECT_EQ(live, members(readFile("/usr/share/dbus-1/interfaces/ru.korvex.vard.xml")));
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

TEST_F(Interface, NothingIsDoneForAnUnknownSessionOrUser) {
    EXPECT_EQ(bus.call("vardConnectRdpTransport", "uu", 33U, 5U).number, 0);
    bus.call("proxyListenStarted", "ub", 33U, 1);
    EXPECT_EQ(bus.call("vardCheckProxyListen").number, 0);
    EXPECT_EQ(bus.call("busSessionShutdown", "s", "nobody").number, 0);
    EXPECT_TRUE(journal.waitFor("busSessionShutdown: session not found: nobody"));
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

} // namespace
