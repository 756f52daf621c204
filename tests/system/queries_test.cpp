// The views of the sessions: their form, and that no user can break or delay them.
#include "service.h"

#include <algorithm>
#include <csignal>
#include <ctime>
#include <regex>
#include <sstream>

namespace {

using namespace Test;
using Clock = std::chrono::steady_clock;

class Queries : public ServiceTest {
protected:
    Queries() {
        auto config = testConfig();
        writeFile("/etc/vard/programs.json", R"([{"name":"One","path":"/usr/bin/xclock"},
                                                 {"name":"Two","path":"/usr/bin/xlogo"}])");
        config["session:path"] = "/usr/bin/xterm";
        start(config);
    }

    std::chrono::duration<double> timed(const std::function<void()>& work) {
        const auto begin = Clock::now();
        work();
        return Clock::now() - begin;
    }
};

Json::Value parse(const std::string& text) {
    Json::Value value;
    std::istringstream(text) >> value;
    return value;
}

std::vector<std::string> keys(const std::string& json) {
    std::vector<std::string> result;
    const std::regex key("[{,]\"([a-z0-9:A-Z]+)\":");
    for (std::sregex_iterator it(json.begin(), json.end(), key), end; it != end; ++it) {
        result.push_back((*it)[1]);
    }
    return result;
}

TEST_F(Queries, SessionObjectHasItsMembersInOrder) {
    mustRun("usermod -c \"$(printf 'Caf\\351 \"Test\" \\\\')\" alice");
    ASSERT_EQ(bus.call("busSessionDomainRequest", "sssyqq", "alice", "A\"B\\C", "secret", 24, 640, 480).number, 33);
    const std::string text = bus.session(33);
    EXPECT_EQ(
        keys(text),
        (std::vector<std::string>{
            "home",          "xauthfile",       "runtimedir", "xsession", "gecos",   "shell",    "username",
            "domain",        "remoteaddr",      "ntlm",       "uid",      "gid",     "display",  "sid",
            "durationLimit", "inactivityLimit", "pid1",       "pid2",     "pid3",    "start",    "depth",
            "width",         "height",          "sec:nla",    "sec:tls",  "sec:rdp", "sec:auth", "seamless:mode"}));
    EXPECT_NE(text.find(R"("domain":"A\"B\\C")"), std::string::npos);
    EXPECT_NE(text.find("\"gecos\":\"Caf\xEF\xBF\xBD \\\"Test\\\" \\\\\""), std::string::npos) << text;
    EXPECT_EQ(info(33)["width"], 640);
    EXPECT_EQ(info(33)["depth"], 24);
    bus.call("vardSessionDurationLimit", "uu", 33U, 4000000000U);
    bus.call("vardSessionInactivityLimit", "uu", 33U, 17U);
    EXPECT_EQ(info(33)["durationLimit"].asUInt(), 4000000000U);
    EXPECT_EQ(info(33)["inactivityLimit"], 17);
}

TEST_F(Queries, TablesListEverySession) {
    const Account bob("bob");
    ASSERT_EQ(bus.login("alice"), 33);
    ASSERT_EQ(bus.login("bob"), 34);
    ASSERT_EQ(bus.call("busProgramRequest", "sssqqs", "alice", "", "secret", 640, 480, "One").number, 35);
    EXPECT_EQ(bus.call("vardSessions").rows,
              (std::vector<std::vector<std::string>>{{"alice", "33"}, {"bob", "34"}, {"alice", "35"}}));
    const auto rows = bus.call("busSessionsInfo").rows;
    ASSERT_EQ(rows.size(), 3U);
    const auto start = static_cast<std::time_t>(info(34)["start"].asInt64());
    char local[32];
    std::strftime(local, sizeof local, "%F %T", std::localtime(&start));
    EXPECT_EQ(rows[1], (std::vector<std::string>{"34", "bob", local, rows[1][3], std::to_string(bob.uid()),
                                                 std::to_string(bob.uid())}));
    EXPECT_LE(std::stoi(rows[1][3]), std::time(nullptr) - start);
    const auto ofAlice = parse(bus.call("vardUserInfoJson", "s", "alice").text);
    ASSERT_EQ(ofAlice.size(), 2U) << "application sessions count here";
    EXPECT_EQ(ofAlice[0]["sid"], 33);
    EXPECT_EQ(ofAlice[1]["xsession"], "/usr/bin/xclock");
    EXPECT_EQ(ofAlice[1]["seamless:mode"], true);
    EXPECT_EQ(bus.call("zabbixSessionsTotal").number, 3);
}

TEST_F(Queries, ProcessesAreTheUsersOwnWhateverTheirNames) {
    ASSERT_EQ(bus.login("alice"), 33);
    mustRun("cp /usr/bin/sleep \"$(printf '/home/alice/sl\\377\"eep')\"");
    mustRun("runuser -u alice -- \"$(printf '/home/alice/sl\\377\"eep')\" 1000 >/dev/null 2>&1 &");
    mustRun("sleep 1000 >/dev/null 2>&1 &");
    std::string text;
    const auto found = [&] {
        text = bus.call("vardSessionProcess", "u", 33U).text;
        std::vector<int> pids;
        for (const auto& process : parse(text)) {
            pids.push_back(process["pid"].asInt());
        }
        std::ranges::sort(pids);
        return pids;
    };
    // The session's programs are still starting their own.
    EXPECT_TRUE(waitUntil([&] {
        auto expected = processes("", "alice");
        std::ranges::sort(expected);
        return found() == expected && text.find("sl\xEF\xBF\xBD\\\"eep\"}") != std::string::npos;
    })) << text
        << shell("ps -u alice -f").text;
    EXPECT_TRUE(std::regex_search(text, std::regex(R"(^\[\{"pid":[0-9]+,"cmd":")"))) << text;
    EXPECT_NE(text.find("\"cmd\":\"/usr/bin/xterm\""), std::string::npos);
}

TEST_F(Queries, StoppedServersDelayNobody) {
    const Account bob("bob");
    ASSERT_EQ(bus.login("alice"), 33);
    ASSERT_EQ(bus.login("bob"), 34);
    ASSERT_EQ(bus.call("busProgramRequest", "sssqqs", "alice", "", "secret", 640, 480, "One").number, 35);
    ASSERT_EQ(bus.call("busProgramRequest", "sssqqs", "alice", "", "secret", 640, 480, "Two").number, 36);
    for (const int sid : {33, 35, 36}) {
        ::kill(info(sid)["pid1"].asInt(), SIGSTOP);
    }
    std::string text;
    // Three seconds are the promise; all her servers together are waited for.
    EXPECT_LT(timed([&] { text = bus.call("vardUserInfoJson", "s", "alice").text; }).count(), 3);
    EXPECT_EQ(parse(text).size(), 3U);
    EXPECT_EQ(text.find("\"width\""), std::string::npos);
    EXPECT_LT(timed([&] { text = bus.session(33); }).count(), 3);
    EXPECT_EQ(text.find("\"depth\""), std::string::npos);
    EXPECT_NE(text.find("\"sid\":33"), std::string::npos);
    EXPECT_LT(timed([&] {
                  EXPECT_EQ(info(34)["width"], 640);
                  EXPECT_EQ(bus.call("vardSessions").rows.size(), 4U);
                  EXPECT_EQ(bus.call("busSessionsInfo").rows.size(), 4U);
                  EXPECT_TRUE(bus.call("vardStatus").ok());
              }).count(),
              1);
    // Nor does a tool that would have to wait for such a server.
    EXPECT_LT(timed([&] {
                  bus.call("vardSessionGeometry", "uqq", 33U, 800, 600);
                  bus.call("proxySessionConnected", "uus", 33U, 0U, "10.1.2.3");
              }).count(),
              6);
    mustRun("pkill -CONT Xvfb");
    EXPECT_TRUE(waitUntil([&] { return info(33)["width"] == 640; })) << "a server that goes on is asked again";
}

TEST_F(Queries, BusAddressComesFromAPlainFileOfTheUser) {
    EXPECT_EQ(bus.call("vardSessionDBusAddress", "s", "alice").text, "");
    ASSERT_EQ(bus.login("alice"), 33);
    const auto address = [&] { return bus.call("vardSessionDBusAddress", "s", "alice").text; };
    EXPECT_EQ(address(), "");
    EXPECT_TRUE(journal.waitFor("exception: filesystem error"));
    const std::string directory = alice.home() + "/.dbus/session-bus/";
    mustRun("mkdir -p " + directory + "d-33; mkfifo " + directory + "a-33; ln -s /etc/passwd " + directory +
            "b-33; : >" + directory + "c-33; chown -R alice " + alice.home() + "/.dbus");
    EXPECT_EQ(address(), "") << "neither a fifo, a directory, a link nor an empty file holds anything";
    writeFile(directory + "m-330", "# note\nDBUS_SESSION_BUS_ADDRESS='unix:path=/x\xFF.y'\nDBUS_SESSION_BUS_PID=1\n");
    EXPECT_EQ(address(), "unix:path=/x\xEF\xBF\xBD.y") << "the number of another display may begin with this one's";
    EXPECT_TRUE(bus.call("vardStatus").ok());
}

} // namespace
