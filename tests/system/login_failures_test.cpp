// Logins that fail: each is refused for its own reason, leaves nothing behind, and the next one works.
#include "service.h"

namespace {

using namespace Test;

class LoginFailures : public ServiceTest {
protected:
    /// Expects that a login of alice fails as asked, with a failed audit record, and leaves nothing.
    void expectFailedStart(const std::string& logged) {
        EXPECT_EQ(bus.login("alice"), -1);
        EXPECT_TRUE(journal.waitFor(logged)) << logged;
        EXPECT_TRUE(journal.audit("VARD:SessionLogin=\"alice\"", "terminal=:33 res=failed"));
        expectNothingLeft();
        EXPECT_FALSE(exists("/run/user/" + std::to_string(alice.uid()))) << "the runtime directory of a refused user";
        EXPECT_EQ(bus.session(33), "{}");
    }
    /// A configuration whose X server is a script that runs as the user.
    Json::Value withServer(const std::string& body) {
        auto config = testConfig();
        config["xvfb:path"] = alice.script("server", body);
        return config;
    }
};

TEST_F(LoginFailures, UnusableAccountsAreRefusedBeforeAnythingStarts) {
    start();
    mustRun("chage -E 1 alice");
    expectFailedStart("validateAccount: pam_acct_mgmt failed, error: User account has expired");
    EXPECT_FALSE(journal.has("createXauthFile"));
    mustRun("chage -E -1 alice");
    EXPECT_EQ(bus.login("root"), -1) << "no session for root";
    EXPECT_EQ(bus.login("daemon"), -1) << "nor for system accounts";
    EXPECT_EQ(bus.login("nobody"), -1);
    EXPECT_EQ(bus.login("alice"), 33);
}

TEST_F(LoginFailures, NamesOfAllKindsStartNothing) {
    start();
    const std::string longName(65536, 'a');
    for (const auto& name : {std::string(""), std::string("nobody-knows"), std::string("../../etc"), std::string("-u"),
                             std::string("alice\n"), std::string("%s%n%s%n"), std::string("ali/ce"), longName}) {
        const auto reply = bus.call("busSessionRequest", "ssyqq", name.c_str(), name.c_str(), 24, 640, 480);
        EXPECT_TRUE(!reply.ok() || reply.number == -1) << name.substr(0, 20);
    }
    EXPECT_EQ(shell("ls -A /run/user").text, "");
    expectNothingLeft();
    EXPECT_EQ(bus.login("alice"), 33);
}

TEST_F(LoginFailures, RequestTextsThatAreNoneAreRefused) {
    start();
    const std::string deep(100000, '[');
    for (const auto& text : {std::string("[1]"), std::string("\"x\""), std::string("{"), std::string(""), deep,
                             std::string(R"({"username":["alice"],"password":"x"})"),
                             std::string(R"({"username":"alice","password":"x","width":{}})")}) {
        const auto reply = bus.call("vardSessionRequest", "s", text.c_str());
        EXPECT_EQ(reply.error, "org.freedesktop.DBus.Error.Failed") << text.substr(0, 40);
        EXPECT_NE(reply.text, "");
    }
    for (const auto& [text, logged] : std::initializer_list<std::pair<const char*, const char*>>{
             {"{}", "params failed, not found: `username'"},
             {R"({"username":"alice"})", "params failed, not found: `password'"},
             {R"({"username":"alice","password":"x","width":65536})", "out of range: `width'"},
             {R"({"username":"alice","password":"x","depth":256})", "out of range: `depth'"},
             {R"({"username":"alice","password":"x","height":-1})", "out of range: `height'"},
             {R"({"username":"alice","password":"x","program":"none"})", "program not registered, name: none"}}) {
        EXPECT_EQ(bus.call("vardSessionRequest", "s", text).number, -1) << text;
        EXPECT_TRUE(journal.waitFor(logged)) << logged;
    }
    expectNothingLeft();
}

TEST_F(LoginFailures, MissingXServerIsAFailedStart) {
    auto config = testConfig();
    config["xvfb:path"] = "/usr/bin/no-such-server";
    start(config);
    expectFailedStart("runChildProcess: program not found: /usr/bin/no-such-server");
}

TEST_F(LoginFailures, SilentXServerIsPassedOverWhileItStillRuns) {
    start(withServer("exec sleep 1000"));
    EXPECT_EQ(bus.login("alice"), -1);
    EXPECT_TRUE(journal.waitFor("startSession: xvfb not started, pid: "));
    EXPECT_EQ(shell("ls -A /run/vard").text, "vard_service.pid\n");
    // Its display may still come to life, so the next login gets another one.
    ASSERT_TRUE(reload(testConfig()));
    EXPECT_EQ(bus.login("alice"), 34);
    EXPECT_TRUE(journal.waitFor("startSession: display passed over: 33"));
    EXPECT_EQ(service->stop(), 0);
    EXPECT_TRUE(processes("sleep 1000").empty());
}

TEST_F(LoginFailures, XServerThatRefusesTheCookieIsTriedFiveTimes) {
    // It reads another authority file than the one that it was given.
    start(withServer(
        "xauth -f ~/other add \"$1\" . 00112233 2>/dev/null; exec Xvfb \"$1\" -screen 0 640x480x24 -auth ~/other"));
    expectFailedStart("startSession: exception: Connector, attempts left: 1");
    for (const char* left : {"5", "4", "3", "2"}) {
        EXPECT_EQ(journal.count(std::string("attempts left: ") + left), 1U);
    }
}

TEST_F(LoginFailures, WithoutAttemptsNoSessionStartsButOneIsStillFound) {
    auto config = testConfig();
    start(config);
    ASSERT_EQ(bus.login("alice"), 33);
    config["xcon:attempts:count"] = 0;
    ASSERT_TRUE(reload(config));
    EXPECT_EQ(bus.login("alice"), 33);
    Account bob("bob");
    EXPECT_EQ(bus.login("bob"), -1);
    EXPECT_FALSE(journal.has("attempts left"));
    EXPECT_TRUE(waitUntil([] { return processes("Xvfb").size() == 1; }));
}

TEST_F(LoginFailures, MissingSessionProgramIsAFailedStart) {
    auto config = testConfig();
    config["session:path"] = "/usr/bin/no-such-program";
    start(config);
    expectFailedStart("runChildProcess: program not found: /usr/bin/no-such-program");
}

TEST_F(LoginFailures, SessionProgramThatCannotRunEndsTheSession) {
    auto config = testConfig();
    config["session:path"] = alice.home() + "/text";
    writeFile(alice.home() + "/text", "no program");
    start(config);
    Signals signals;
    EXPECT_EQ(bus.login("alice"), 33);
    signals.upTo("signalSessionShutdown");
    EXPECT_TRUE(journal.waitFor("runOwnerCommand: execv failed, error: Permission denied, code: 13"));
    expectNothingLeft();
}

TEST_F(LoginFailures, MissingHomeIsAWarningAndTheSizeIsRepeated) {
    mustRun("mv /home/alice /home/elsewhere");
    start(Json::Value(Json::objectValue)); // Xorg, which has more than one mode
    ASSERT_EQ(bus.login("alice", 800, 600), 33);
    EXPECT_TRUE(journal.waitFor("startSession: user home not found: `/home/alice'"));
    EXPECT_TRUE(journal.waitFor("switchToUser: chdir failed"));
    ASSERT_EQ(info(33)["width"].asInt(), 800);
    // A desktop without a home sets the size back; three seconds later it is right again.
    const std::string xrandr =
        "runuser -u alice -- env XAUTHORITY=/run/vard/xauth_33 xrandr --display :33 --size 640x480";
    mustRun("mv /home/elsewhere /home/alice; " + xrandr);
    EXPECT_TRUE(waitUntil([&] { return info(33)["width"].asInt() == 800; }));
    mustRun(xrandr);
    EXPECT_TRUE(waitUntil([&] { return info(33)["width"].asInt() == 800; })) << "and again";
}

} // namespace
