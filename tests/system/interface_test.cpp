// The bus interface as callers find it, and what hostile callers can do to it.
#include "service.h"

#include <algorithm>
#include <fstream>
#include <regex>

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

TEST_F(Interface, MethodsOfLaterVersionsSaySo) {
    EXPECT_EQ(bus.call("vardSessions").error, "org.freedesktop.DBus.Error.NotSupported");
    EXPECT_EQ(bus.call("vardSendNotify", "ussy", 33U, "a", "b", 1).error, "org.freedesktop.DBus.Error.NotSupported");
    EXPECT_EQ(bus.call("busProgramRequest", "sssqqs", "a", "", "b", 1, 2, "c").error,
              "org.freedesktop.DBus.Error.NotSupported");
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

TEST_F(Interface, OnlyRootMayCallOrOwnTheName) {
    const std::string asAlice = "runuser -u alice -- ";
    const std::string call = "busctl call ru.korvex.vard /ru/korvex/vard ru.korvex.vard vardStatus";
    EXPECT_EQ(shell(call).text, "b true\n");
    EXPECT_NE(shell(asAlice + call).text.find("ccess denied"), std::string::npos);
    service->stop();
    EXPECT_NE(shell(asAlice + "busctl call org.freedesktop.DBus / org.freedesktop.DBus RequestName su ru.korvex.vard 0")
                  .status,
              0);
}

} // namespace
