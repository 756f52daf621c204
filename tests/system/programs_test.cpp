// The published programs and the sessions that run one of them.
#include "service.h"

#include <gmock/gmock.h>

namespace {

using namespace Test;
using testing::Contains;

constexpr const char* listFile = "/etc/vard/programs.json";

class Programs : public ServiceTest {
protected:
    int64_t run(const char* name) {
        return bus.call("busProgramRequest", "sssqqs", "alice", "WORK", "secret", 640, 480, name).number;
    }
};

TEST_F(Programs, AreListedAndTheSameProgramReusesTheSessionAnotherProgramGetsItsOwn) {
    writeFile(listFile,
              "[{\"name\":\"Clock\",\"path\":\"/usr/bin/xclock\"},{\"name\":\"caf\xE9\",\"path\":\"/bin/true\"}]");
    start();
    const auto names = bus.call("vardProgramList").texts;
    EXPECT_THAT(names, Contains("XTerm")) << "an installed desktop entry";
    EXPECT_EQ(names.back(), "caf\uFFFD") << "the bus carries valid text alone";
    Signals signals;
    ASSERT_EQ(bus.login("alice", 640, 480), 33);
    signals.upTo("signalProxyAllowConnection");
    const int server = info(33)["pid1"].asInt();
    EXPECT_EQ(bus.call("busSessionRequest", "ssyqq", "alice", "not-the-password", 8, 640, 480).number, 33);
    EXPECT_EQ(signals.upTo("signalProxyAllowConnection"), (Heard{{"signalProxyAllowConnection", {33, alice.uid()}}}));
    EXPECT_EQ(info(33)["pid1"].asInt(), server);
    EXPECT_TRUE(journal.waitFor("startSession: session found, session id: 0x00000021, display: 33"));
    const auto* request = R"({"username":"alice","password":"x","program":"Clock","sec:tls":false})";
    EXPECT_EQ(bus.call("vardSessionRequest", "s", request).number, 34);
    EXPECT_TRUE(!info(34)["sec:tls"].asBool() && info(34)["sec:rdp"].asBool());
}

TEST_F(Programs, ProgramRunsAsASessionOfItsOwn) {
    writeFile(listFile, R"([{"name":"Term","path":"/usr/bin/xterm","args":["-geometry","20x5+50+50"]},
                            {"name":"/usr/bin/xclock","path":"/usr/bin/xlogo"}])");
    start(testConfig({{"session:path", "/usr/bin/xclock"}}));
    Signals signals;
    ASSERT_EQ(run("Term"), 33);
    EXPECT_EQ(signals.upTo("signalProxyAllowConnection"), (Heard{{"signalProxyAllowConnection", {33, alice.uid()}}}));
    EXPECT_TRUE(waitUntil([] { return !processes("/usr/bin/xterm -geometry 20x5+50+50", "alice").empty(); }));
    // Without a window manager the terminal leads itself: it is fitted to the screen.
    EXPECT_TRUE(waitUntil([] {
        return shell("DISPLAY=:33 XAUTHORITY=/run/vard/xauth_33 xwininfo -root -children")
                   .text.find("(\"xterm\" \"XTerm\")  640x480+0+0") != std::string::npos;
    }));
    const auto session = info(33);
    EXPECT_EQ(session["seamless:mode"], true);
    EXPECT_EQ(session["domain"], "WORK");
    EXPECT_TRUE(session["ntlm"].asString().starts_with("alice:")) << session["ntlm"];
    EXPECT_EQ(bus.call("vardSessionRequest", "s", R"({"username":"alice","password":"x","program":"Term"})").number,
              33);
    EXPECT_TRUE(waitUntil([&] { return journal.count("sessionCorrectMainWindowSize: wait next iteration: 9") == 2; }));
    EXPECT_EQ(run("/usr/bin/xclock"), 34);
    EXPECT_EQ(info(34)["seamless:mode"], false) << "the name is the configured desktop's path";

    ASSERT_TRUE(reload(testConfig()));
    EXPECT_EQ(run("Term"), 33) << "the same program is the same session";
    EXPECT_EQ(info(33)["seamless:mode"], false) << "no desktop is configured at all";
}

} // namespace
