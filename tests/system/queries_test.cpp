// The views of the sessions: their form, and that no user can break or delay them.
#include "attacker.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <regex>
#include <sstream>

namespace {

using namespace Test;
using testing::HasSubstr;
using Names = std::vector<std::string>;

class Queries : public ServiceTest {
protected:
    Queries() {
        writeFile("/etc/vard/programs.json", R"([{"name":"Clock","path":"/usr/bin/xclock"},
                                                 {"name":"Logo","path":"/usr/bin/xlogo"}])");
        start();
    }
};

Json::Value parse(const std::string& text) {
    Json::Value value;
    std::istringstream(text) >> value;
    return value;
}

/// The object without its values.
std::string keys(const std::string& json) {
    static const std::regex member(R"re("([^"]+)":("([^"\\]|\\.)*"|[^,}]*))re");
    return std::regex_replace(json, member, "$1");
}

TEST_F(Queries, SessionObjectHasItsMembersInOrder) {
    mustRun("usermod -c \"$(printf 'Caf\\351 \"Test\" \\\\')\" alice");
    ASSERT_EQ(bus.call("busSessionDomainRequest", "sssyqq", "alice", "A\"B\\C", "secret", 24, 640, 480).number, 33);
    bus.call("vardSessionDurationLimit", "uu", 33U, 4000000000U);
    std::string text = bus.session(33);
    const std::string before =
        "{home,xauthfile,runtimedir,xsession,gecos,shell,username,domain,remoteaddr,ntlm,uid,gid,display,sid,"
        "durationLimit,inactivityLimit,pid1,pid2,pid3,start,";
    const std::string after = "sec:nla,sec:tls,sec:rdp,sec:auth,seamless:mode}";
    EXPECT_EQ(keys(text), before + "depth,width,height," + after);
    EXPECT_THAT(text, HasSubstr(R"("domain":"A\"B\\C")"));
    EXPECT_THAT(text, HasSubstr("\"gecos\":\"Caf\uFFFD \\\"Test\\\" \\\\\""));
    EXPECT_THAT(text, HasSubstr("\"durationLimit\":4000000000,"));

    const int server = info(33)["pid1"].asInt();
    ::kill(server, SIGSTOP);
    EXPECT_LT(timed([&] { text = bus.session(33); }), 3);
    EXPECT_EQ(keys(text), before + after) << "the size is the X server's to tell";
    ::kill(server, SIGCONT);
    EXPECT_TRUE(waitUntil([&] { return info(33)["width"] == 640; })) << "a server that goes on is asked again";
}

TEST_F(Queries, TablesListEverySessionAndNoStoppedServerDelaysThem) {
    const Account bob("bob");
    ASSERT_EQ(bus.login("alice"), 33);
    ASSERT_EQ(bus.login("bob"), 34);
    for (const char* program : {"Clock", "Logo"}) {
        bus.call("busProgramRequest", "sssqqs", "alice", "", "secret", 640, 480, program);
    }
    const std::vector<Names> everybody{{"alice", "33"}, {"bob", "34"}, {"alice", "35"}, {"alice", "36"}};
    EXPECT_EQ(bus.call("vardSessions").rows, everybody);
    const auto rows = bus.call("busSessionsInfo").rows;
    ASSERT_EQ(rows.size(), 4U);
    const auto start = info(34)["start"].asInt64();
    const auto local = [&] { return mustRun("date -d @" + std::to_string(start) + " '+%F %T' | tr -d '\\n'"); };
    const auto uid = std::to_string(bob.uid());
    EXPECT_EQ(rows[1], (Names{"34", "bob", local(), rows[1][3], uid, uid}));
    mustRun("ln -sfn /usr/share/zoneinfo/Asia/Tokyo /etc/localtime"); // while the service runs
    EXPECT_EQ(bus.call("busSessionsInfo").rows[1][2], local());
    mustRun("ln -sfn /usr/share/zoneinfo/Etc/UTC /etc/localtime");
    EXPECT_LE(std::stoi(rows[1][3]), std::time(nullptr) - start);

    // What fits the programs' windows must not be the one that finds their servers stopped.
    EXPECT_TRUE(waitUntil([&] { return journal.count("sessionCorrectMainWindowSize: wait next iteration: 0") == 2; }));
    for (const int sid : {33, 35, 36}) {
        ::kill(info(sid)["pid1"].asInt(), SIGSTOP);
    }
    // Three seconds are the promise; all her servers together are waited for.
    Json::Value ofAlice;
    EXPECT_LT(timed([&] { ofAlice = parse(bus.call("vardUserInfoJson", "s", "alice").text); }), 3);
    ASSERT_EQ(ofAlice.size(), 3U) << "application sessions count here";
    EXPECT_EQ(ofAlice[1]["xsession"], "/usr/bin/xclock");
    EXPECT_LT(timed([&] {
                  EXPECT_EQ(info(34)["width"], 640);
                  EXPECT_EQ(bus.call("vardSessions").rows, everybody);
                  EXPECT_EQ(bus.call("busSessionsInfo").rows.size(), 4U);
              }),
              1);
}

TEST_F(Queries, ProcessesAreTheUsersOwnWhateverTheirNames) {
    ASSERT_EQ(bus.login("alice"), 33);
    const std::string odd = "\"$(printf '/home/alice/sl\\377\"eep')\"";
    mustRun("cp /usr/bin/sleep " + odd + "; runuser -u alice -- " + odd + " 1000 >/dev/null 2>&1 &");
    std::string text;
    const auto found = [&] {
        text = bus.call("vardSessionProcess", "u", 33U).text;
        std::vector<int> pids;
        for (const auto& process : parse(text)) {
            pids.push_back(process["pid"].asInt());
        }
        return pids;
    };
    // The session's programs are still starting their own.
    EXPECT_TRUE(waitUntil([&] {
        const auto expected = processes("", "alice");
        return std::ranges::is_permutation(found(), expected) && text.find("sl\uFFFD\\\"eep\"}") != std::string::npos;
    })) << text
        << shell("ps -u alice -f").text;
    EXPECT_THAT(text, testing::ContainsRegex("^\\[\\{\"pid\":[0-9]+,\"cmd\":\""));
}

TEST_F(Queries, BusAddressComesFromAPlainFileOfTheUser) {
    ASSERT_EQ(bus.login("alice"), 33);
    const auto address = [&] { return bus.call("vardSessionDBusAddress", "s", "alice").text; };
    EXPECT_EQ(address(), "") << "no directory";
    const std::string directory = alice.home() + "/.dbus/session-bus/";
    mustRun("mkdir -p " + directory + "d-33; mkfifo " + directory + "a-33; ln -s /etc/passwd " + directory +
            "b-33; : >" + directory + "c-33; chown -R alice " + alice.home() + "/.dbus");
    EXPECT_EQ(address(), "") << "neither a fifo, another's file nor an empty one holds anything";
    mustRun("ln -s /tmp/address " + directory + "m-330");
    writeFile("/tmp/address", "# note\nDBUS_SESSION_BUS_ADDRESS='unix:path=/x\xFF.y'\nDBUS_SESSION_BUS_ADDRESS='b'\n");
    EXPECT_EQ(address(), "unix:path=/x\uFFFD.y") << "the number of another display may begin with this one's";
}

} // namespace
