// The bus interface as callers find it, and what hostile callers can do to it.
#include "service.h"

#include <algorithm>
#include <fstream>
#include <regex>
#include <thread>

namespace {

using namespace Test;

class Interface : public ServiceTest {
protected:
    Interface() { start(); }
};

/// Members, arguments, types and directions in the order of the text; a missing direction is a signal's.
std::vector<std::string> members(const std::string& xml) {
    std::vector<std::string> result;
    const std::regex tag(R"re(<(method|signal|property|arg)\s([^>]*)>)re");
    const auto attribute = [](const std::string& text, const std::string& name) {
        std::smatch match;
        return std::regex_search(text, match, std::regex(name + "=\"([^\"]*)\"")) ? match[1].str() : "";
    };
    for (std::sregex_iterator it(xml.begin(), xml.end(), tag), end; it != end; ++it) {
        const std::string text = (*it)[2];
        const std::string direction = attribute(text, "direction");
        result.push_back((*it)[1].str() + " " + attribute(text, "name") + " " + attribute(text, "type") +
                         (direction == "in" ? " in" : ""));
    }
    return result;
}

TEST_F(Interface, LiveIntrospectionMatchesTheDescriptionInOrder) {
    const auto reply = bus.callInterface("org.freedesktop.DBus.Introspectable", "Introspect");
    const auto begin = reply.text.find("<interface name=\"ru.korvex.vard\"");
    ASSERT_NE(begin, std::string::npos) << reply.text;
    const auto live = members(reply.text.substr(begin, reply.text.find("</interface>", begin) - begin));
    EXPECT_EQ(live, members(readFile("/usr/share/dbus-1/interfaces/ru.korvex.vard.xml")));
    const auto kind = [&](const std::string& word) {
        return std::ranges::count_if(live, [&](const auto& line) { return line.starts_with(word); });
    };
    EXPECT_EQ(kind("method "), 35);
    EXPECT_EQ(kind("signal "), 6);
    EXPECT_EQ(kind("property "), 0);
}

TEST_F(Interface, TellsThatItIsAliveAndItsVersion) {
    EXPECT_EQ(bus.call("vardStatus").number, 1);
    EXPECT_EQ(bus.call("vardTest").text, "VARD SERVICE v.0.3.rel2 build(202306200649)");
    EXPECT_TRUE(journal.waitFor("vardTest send ping version success"));
}

TEST_F(Interface, EveryMethodAnswersForAnUnknownSessionOrUser) {
    for (const char* method : {"vardSessionShutdown", "vardDisconnect"}) {
        EXPECT_EQ(bus.call(method, "u", 33U).number, 0) << method;
    }
    EXPECT_EQ(bus.call("vardConnectRdpTransport", "uu", 33U, 5U).number, 0);
    EXPECT_EQ(bus.call("vardSendNotify", "ussy", 33U, "a", "b", 1).number, 0);
    EXPECT_EQ(bus.call("busSessionShutdown", "s", "nobody").number, 0);
    EXPECT_EQ(bus.call("busProgramRequest", "sssqqs", "a", "", "b", 1, 2, "no such program").number, -1);
    EXPECT_EQ(bus.call("vardCheckAuthUser", "sss", "nobody-knows", "x", "vard").number, 0);
    EXPECT_EQ(bus.call("vardSessionInfoJson", "u", 33U).text, "{}");
    EXPECT_EQ(bus.call("vardUserInfoJson", "s", "nobody").text, "[]");
    const auto processes = bus.call("vardSessionProcess", "u", 33U);
    EXPECT_TRUE(processes.ok() && processes.text.empty());
    const auto address = bus.call("vardSessionDBusAddress", "s", "nobody");
    EXPECT_TRUE(address.ok() && address.text.empty());
    EXPECT_TRUE(bus.call("vardSessions").rows.empty());
    EXPECT_TRUE(bus.call("busSessionsInfo").rows.empty());
    for (const auto& reply :
         {bus.call("vardSessionDurationLimit", "uu", 33U, 1U), bus.call("vardSessionInactivityLimit", "uu", 33U, 1U),
          bus.call("vardSessionGeometry", "uqq", 33U, 640, 480),
          bus.call("vardRdpSecurityPolicy", "ubbb", 33U, 0, 0, 0), bus.call("proxyListenStarted", "ub", 33U, 1),
          bus.call("proxyClientConnected", "us", 33U, "10.0.0.1"),
          bus.call("proxySessionConnected", "uus", 33U, 1U, "10.0.0.1")}) {
        EXPECT_TRUE(reply.ok() && reply.type.empty()) << reply.error << reply.type;
    }
    EXPECT_EQ(bus.call("vardCheckProxyListen").number, 0) << "nothing was reported for a session that exists";
    EXPECT_TRUE(journal.waitFor("vardSessionDurationLimit: session id: 0x00000021, limit: 1 src"));
    EXPECT_TRUE(journal.has("vardRdpSecurityPolicy: session id: 0x00000021, nla: 0, tls: 0, rdp: 0"));
    EXPECT_TRUE(journal.has("vardSessionGeometry: session id: 0x00000021, width: 640, height: 480"));
    EXPECT_TRUE(journal.has("vardSessionProcess: session not found: 0x00000021"));
    EXPECT_TRUE(journal.has("busSessionShutdown: session not found: nobody"));
    EXPECT_TRUE(journal.has("busProgramRequest: program not registered, name: `no such program'"));
}

TEST_F(Interface, TellsTheLoadOfTheMachine) {
    const auto reply = bus.call("vardLoadAverage");
    double oneMinute = 0;
    double fiveMinutes = 0;
    std::ifstream("/proc/loadavg") >> oneMinute >> fiveMinutes;
    EXPECT_EQ(reply.type, "d");
    // The kernel may take a new figure between the two readings.
    EXPECT_NEAR(reply.real, fiveMinutes * 100 / std::thread::hardware_concurrency(), 5);
}

TEST_F(Interface, HostileMessagesGetAnErrorAndTheServiceLives) {
    // Under our own policy such a message does not even arrive.
    EXPECT_EQ(bus.callInterface(nullptr, "vardStatus").error, "org.freedesktop.DBus.Error.AccessDenied");
    writeFile("/etc/dbus-1/system.d/loose.conf",
              "<busconfig><policy user=\"root\"><allow send_destination=\"ru.korvex.vard\"/></policy></busconfig>");
    mustRun("busctl call org.freedesktop.DBus / org.freedesktop.DBus ReloadConfig");
    EXPECT_EQ(bus.callInterface(nullptr, "vardStatus").error, "org.freedesktop.DBus.Error.UnknownInterface");
    EXPECT_EQ(bus.call("noSuchMethod").error, "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_EQ(bus.call("vardStatus", "s", "surplus").error, "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(bus.call("vardSessionInfoJson").error, "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(bus.call("busSessionRequest", "ssqqy", "a", "b", 1, 2, 3).error,
              "org.freedesktop.DBus.Error.InvalidArgs");
    for (int i = 0; i < 50; ++i) {
        bus.call("vardSessionRequest", "s", "{");
    }
    EXPECT_TRUE(bus.call("vardStatus").ok());
}

} // namespace
