// Logins that fail: each is refused for its own reason, leaves nothing behind, and the next one works.
#include "service.h"

namespace {

using namespace Test;
using namespace std::string_literals;

class LoginFailures : public ServiceTest {
protected:
    /// Expects that a login of alice fails as asked and leaves nothing.
    void expectFailedStart(const std::string& logged) {
        EXPECT_EQ(bus.login("alice"), -1);
        EXPECT_TRUE(journal.waitFor(logged)) << logged;
        expectNothingLeft();
        EXPECT_FALSE(exists("/run/user/" + std::to_string(alice.uid()))) << "the runtime directory of a refused user";
        EXPECT_EQ(bus.session(33), "{}");
    }
};

TEST_F(LoginFailures, UnusableAccountsAreRefusedBeforeAnythingStarts) {
    start();
    mustRun("chage -E 1 alice");
    expectFailedStart("validateAccount: pam_acct_mgmt failed, error: User account has expired");
    EXPECT_FALSE(journal.has("createXauthFile"));
    mustRun("chage -E -1 alice");
    for (const char* system : {"root", "daemon", "nobody"}) {
        EXPECT_EQ(bus.login(system), -1) << system;
    }
    EXPECT_EQ(bus.login("alice"), 33);
}

TEST_F(LoginFailures, RequestsThatCannotBeServedStartNothing) {
    start();
    const std::string failed = "org.freedesktop.DBus.Error.Failed";
    for (const auto& name : {""s, "nobody-knows"s, "../../etc"s, "alice\n"s, "%s%n"s, std::string(65536, 'a')}) {
        const auto reply = bus.call("busSessionRequest", "ssyqq", name.c_str(), name.c_str(), 24, 640, 480);
        EXPECT_TRUE(reply.number == -1 || reply.error == failed) << name.substr(0, 20) << ": " << reply.error;
    }
    const auto withMember = [](const std::string& member) {
        return R"({"username":"alice","password":"x",)" + member + "}";
    };
    for (const auto& text : {"[1]"s, R"({"username":["alice"],"password":"x"})"s, std::string(100000, '['),
                             withMember(R"("sec:nla":"maybe")"), withMember(R"("sec:auth":[])"),
                             withMember(R"("domain":{})"), withMember(R"("use:ntlmv2":"no")")}) {
        EXPECT_EQ(bus.call("vardSessionRequest", "s", text.c_str()).error, failed) << text.substr(0, 80);
    }
    for (const auto& [text, logged] : std::map<const char*, const char*>{
             {R"({"password":"x"})", "params failed, not found: `username'"},
             {R"({"username":"alice"})", "params failed, not found: `password'"},
             {R"({"username":"alice","password":"x","width":65536})", "out of range: `width'"},
             {R"({"username":"alice","password":"x","height":-1})", "out of range: `height'"},
             {R"({"username":"alice","password":"x","program":"none"})", "program not registered, name: none"}}) {
        EXPECT_EQ(bus.call("vardSessionRequest", "s", text).number, -1) << text;
        EXPECT_TRUE(journal.waitFor(logged)) << logged;
    }
    EXPECT_EQ(shell("ls -A /run/user").text, "");
    expectNothingLeft();
    EXPECT_EQ(bus.login("alice"), 33);
}

TEST_F(LoginFailures, SilentXServerIsPassedOverWhileItStillRuns) {
    start(testConfig({{"xvfb:path", alice.script("server", "exec sleep 1000")}}));
    EXPECT_EQ(bus.login("alice"), -1);
    EXPECT_TRUE(journal.waitFor("startSession: xvfb not started, pid: "));
    EXPECT_EQ(shell("ls -A /run/vard").text, "session_users\nvard_service.pid\n");
    // Its display may still come to life, so the next login gets another one.
    ASSERT_TRUE(reload(testConfig()));
    EXPECT_EQ(bus.login("alice"), 34);
    EXPECT_TRUE(journal.waitFor("startSession: display passed over: 33"));
    EXPECT_TRUE(waitUntil([] { return processes("sleep 1000").empty(); })) << "told to end where it was in the way";
}

TEST_F(LoginFailures, XServerThatRefusesTheCookieIsTriedFiveTimes) {
    // It reads another authority file than the one that it was given.
    const auto server = alice.script("server",
                                     "xauth -f ~/other add \"$1\" . 00112233 2>/dev/null; "
                                     "exec Xvfb \"$1\" -screen 0 640x480x24 -auth ~/other");
    start(testConfig({{"xvfb:path", server}}));
    expectFailedStart("startSession: exception: Connector, attempts left: 1");
    EXPECT_EQ(journal.count("attempts left: "), 5U);
}

TEST_F(LoginFailures, SessionProgramThatCannotRunEndsTheSession) {
    writeFile(alice.home() + "/text", "no program");
    start(testConfig({{"session:path", alice.home() + "/text"}}));
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
    // A desktop without a home sets the size back, more than once; so often is it made right again.
    for (int i = 0; i < 2; ++i) {
        mustRun("runuser -u alice -- env XAUTHORITY=/run/vard/xauth_33 xrandr --display :33 --size 640x480");
        EXPECT_TRUE(waitUntil([&] { return info(33)["width"].asInt() == 800; }));
    }
    EXPECT_TRUE(journal.waitFor("startSession: user home not found: `/home/alice'"));
    EXPECT_TRUE(journal.waitFor("switchToUser: chdir failed"));
    mustRun("mv /home/elsewhere /home/alice");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // which keep what was freed
TEST_F(LoginFailures, RefusedPasswordsDoNotStayInMemory) {
    start();
    const std::string password = "an allocator may overwrite this, but not the hidden end";
    bus.call("vardSessionRequest", "s", (R"({"username":"nobody","password":")" + password + "\"}").c_str());
    bus.call("busSessionRequest", "ssyqq", "nobody", password.c_str(), 24, 640, 480);
    bus.call("busSetDebugLevel", "s", std::string(4096, ' ').c_str()); // over what the library read last
    EXPECT_FALSE(inMemory(service->pid(), "not the hidden end"));
}
#endif

TEST_F(LoginFailures, SettingsThatCannotBeStartedWithAreToldAndUndone) {
    for (const auto& [config, logged] : std::initializer_list<std::pair<Json::Value, std::string>>{
             {testConfig({{"xvfb:path", "/no/server"}}), "runChildProcess: program not found: /no/server"},
             {testConfig({{"session:path", "/no/program"}}), "runChildProcess: program not found: /no/program"},
             {testConfig({{"xcon:attempts:count", 0}}), "runXvfbDisplay: display: 33"}}) {
        start(config);
        expectFailedStart(logged);
        service->stop();
    }
}

} // namespace
