// The administrators' command, as installed, against the real service.
#include "service.h"

#include <gmock/gmock.h>

namespace {

using namespace Test;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

enum Exit { done = 0, failed = 1, usage = 2, notRunning = 3, denied = 4 };

Output ctl(const std::string& words) { return shell("vardctl " + words); }

/// Starts `vardctl watch` and waits until it follows the service; its process id.
int startWatch(const std::string& words = "") {
    const auto pid = mustRun("rm -f /tmp/watch; vardctl watch " + words + " >/tmp/watch 2>&1 & echo $!");
    waitUntil([] { return !readFile("/tmp/watch").empty(); });
    return std::stoi(pid);
}
bool watchSees(const std::string& text) {
    return waitUntil([&] { return readFile("/tmp/watch").find(text) != std::string::npos; });
}

/// What a terminal shows when a command has asked for a password and the keys are then typed.
std::string typed(const std::string& keys, const std::string& command) {
    shell("rm -f /tmp/screen; (until grep -q Password /tmp/screen; do sleep 0.05; done; printf '" + keys +
          "') 2>/dev/null | timeout 60 script -qfec '" + command + "' /tmp/screen");
    return readFile("/tmp/screen");
}

class VardctlTest : public ServiceTest {
protected:
    ~VardctlTest() override {
        shell("pkill -x vardctl; rm -f /etc/nologin; [ ! -e /tmp/passwd ] || mv /tmp/passwd /etc/passwd");
    }
    void logIn() { ASSERT_EQ(mustRun("echo secret | vardctl login alice --width 640 --height 480"), "33\n"); }
};

TEST_F(VardctlTest, SessionsAreStartedShownChangedAndEnded) {
    start(testConfig({{"helper:notification", alice.script("helper", "printf '%s|' \"$@\" >/home/alice/notice")}}));
    startWatch();
    logIn();
    EXPECT_THAT(ctl("list").text,
                ContainsRegex("^SESSION USER .*\n +33 alice :33 +detached - .* 640x480 /usr/bin/xterm\n$"));
    EXPECT_THAT(ctl("list --json").text, HasSubstr("\"state\":\"detached\""));
    EXPECT_THAT(ctl("show 33").text, HasSubstr("\nhome=/home/alice\n"));
    EXPECT_THAT(ctl("status").text, HasSubstr("Sessions: 1\nOnline:   0\n"));
    EXPECT_TRUE(
        waitUntil([] { return ctl("processes 33 --no-legend").text.find(" /usr/bin/xterm\n") != std::string::npos; }));
    writeFile("/tmp/complete", R"(. /usr/share/bash-completion/completions/vardctl
try() { COMP_WORDS=(vardctl "$@"); COMP_CWORD=$#; _vardctl; echo ${COMPREPLY[*]}; }
try show ""; try limit --duration 4 ""; try sh)");
    EXPECT_EQ(mustRun("bash /tmp/complete"), "33 alice\n33\nshow shutdown\n");
    EXPECT_EQ(ctl("limit 33 --duration 1000 --inactivity 7").status, done);
    EXPECT_EQ(info(33)["durationLimit"], 1000);
    EXPECT_EQ(info(33)["inactivityLimit"], 7);
    EXPECT_EQ(ctl("notify 33 --header Title --level 2 -- '--at noon'").status, done);
    EXPECT_TRUE(waitUntil([] {
        return readFile("/home/alice/notice") == "--header|\"Title\"|--message|\"--at noon\"|--level|2|";
    })) << readFile("/home/alice/notice");
    EXPECT_EQ(ctl("resize 33 640x480").status, done);
    EXPECT_THAT(ctl("resize 33 5000x4000").text, HasSubstr("the size is now 640x480"));
    EXPECT_EQ(mustRun("echo secret | vardctl login alice; vardctl list --no-legend | grep -c 640x480"), "33\n1\n");
    EXPECT_EQ(ctl("disconnect 33").status, failed) << "nobody is connected";
    EXPECT_EQ(ctl("shutdown alice").status, done);
    EXPECT_TRUE(watchSees("signalSessionShutdown session=33\n"));
}

TEST_F(VardctlTest, NeitherSecretsNorWhatSteersATerminalIsShown) {
    mustRun("perl -pi -e 's/Test Person/Evil \\e[2J/' /etc/passwd"); // as another account source may deliver it
    start();
    logIn();
    const auto hash = info(33)["ntlm"].asString();
    ASSERT_FALSE(hash.empty());
    const auto shown = ctl("show 33").text;
    const auto json = ctl("show alice --json").text;
    EXPECT_THAT(shown + json, Not(HasSubstr(hash)));
    EXPECT_THAT(ctl("show 33 --secrets").text, HasSubstr(hash));
    EXPECT_THAT(shown, HasSubstr("\ngecos=Evil \\x1b[2J\n"));
    EXPECT_THAT(json, HasSubstr("\"Evil \\u001b[2J\""));
}

TEST_F(VardctlTest, WatchStaysWhenTheServiceGoesAndBelievesNobodyElse) {
    start();
    const int pid = startWatch("--json");
    const auto address =
        mustRun("busctl list --no-legend | awk '$2 == " + std::to_string(pid) + " { print $1 }' | tr -d '\\n'");
    // Under a policy that lets her, a stranger sends the service's signal straight to the watch.
    {
        const LoosePolicy loose;
        mustRun("runuser -u alice -- busctl emit --destination=" + address +
                " /ru/korvex/vard ru.korvex.vard signalSessionShutdown u 666");
    }
    logIn();
    EXPECT_EQ(ctl("stop").status, done);
    service->wait();
    EXPECT_TRUE(watchSees("\"event\":\"serviceLeft\""));
    EXPECT_EQ(ctl("status").status, notRunning);
    start();
    EXPECT_TRUE(watchSees("\"event\":\"serviceAppeared\""));
    EXPECT_THAT(readFile("/tmp/watch"), HasSubstr("{\"event\":\"signalProxyAllowConnection\",\"session\":33,"));
    EXPECT_THAT(readFile("/tmp/watch"), Not(HasSubstr("666")));
    EXPECT_EQ(shell("timeout 60 bash -c 'vardctl watch | head -n1 >/dev/null'").status, done) << "its reader is gone";
}

TEST_F(VardctlTest, ClosedMachineLetsUsersFindTheirSessionsAlone) {
    const Account bob("bob");
    writeFile("/tmp/new.json", R"([{"name":"Clock","path":"/usr/bin/xclock"}])");
    start(testConfig({{"session:programs", "/tmp/new.json"}}));
    logIn();
    ASSERT_TRUE(waitUntil([] { return readFile("/run/vard/session_users") == "alice\n"; }));
    writeFile("/etc/nologin", "");
    logIn();
    EXPECT_THAT(shell("echo secret | vardctl login bob 2>&1").text, HasSubstr("closed for new sessions"));
    EXPECT_THAT(shell("echo secret | vardctl run alice Clock 2>&1").text, HasSubstr("closed for new sessions"))
        << "another session than the one that runs";
    EXPECT_THAT(ctl("status").text, HasSubstr("Draining: yes"));
    EXPECT_THAT(mustRun("/usr/share/vard/monitoring/vard_agent_check"), testing::StartsWith("up 0% #drain"));
    ctl("shutdown 33");
    EXPECT_TRUE(waitUntil([] { return readFile("/run/vard/session_users").empty(); }));
    EXPECT_EQ(shell("echo secret | vardctl login alice").status, failed);
    shell("rm /etc/nologin");
    EXPECT_EQ(shell("echo secret | vardctl login bob").status, done);
}

TEST_F(VardctlTest, SessionThatNobodyReachesIsToldOf) {
    start(testConfig({{"hash:path", "/bin/false"}}));
    EXPECT_THAT(shell("echo secret | vardctl login alice 2>&1").text, HasSubstr("no hash line"));
    mustRun("cp /etc/passwd /tmp; sed -i /^alice:/d /etc/passwd");
    EXPECT_THAT(shell("echo secret | vardctl login alice --no-check 2>&1").text, HasSubstr("no user any more"));
    EXPECT_THAT(ctl("resize 33 640x480").text, HasSubstr("no user any more"));
}

TEST_F(VardctlTest, ExitCodesTellWhatWentWrong) {
    EXPECT_EQ(shell("DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nowhere vardctl list").status, notRunning);
    start();
    for (const char* words : {"show 99", "show nobody", "show --user 33", "processes 99", "notify 99 text",
                              "limit 99 --duration 1", "resize 99 640x480", "disconnect 99", "shutdown 99",
                              "address nobody", "list >/dev/full", "login nobody </etc/passwd"}) {
        EXPECT_EQ(ctl(words).status, failed) << words;
    }
    for (const char* words : {"", "limit 33", "notify 33 text --level 256", "log-level warning",
                              "login alice </dev/null", "login alice --depth 0 </etc/passwd"}) {
        EXPECT_EQ(ctl(words).status, usage) << words;
    }
    for (const char* words : {"login --help", "--version", "log-level notice"}) {
        EXPECT_EQ(ctl(words).status, done) << words;
    }
    EXPECT_EQ(shell("runuser -u alice -- timeout 60 vardctl watch").status, denied) << "it would hear nothing for ever";
    for (const auto& [command, who] :
         std::map<std::string, const char*>{{"status", "the group vard-monitor or vard-frontend"},
                                            {"list", "by members of the group vard-frontend"},
                                            {"stop", "root alone"}}) {
        EXPECT_THAT(shell("runuser -u alice -- vardctl " + command).text, HasSubstr(who));
    }
}

TEST_F(VardctlTest, NobodyIsAskedForAPasswordInVainAndNoneIsShown) {
    const auto asks = [](const std::string& command) {
        return shell("timeout 20 script -qfec '" + command + "' /dev/null </dev/null 2>&1").text;
    };
    EXPECT_THAT(asks("vardctl login alice"), testing::StartsWith("vardctl: the service is not running"));
    writeFile("/tmp/new.json", "[]");
    start(testConfig({{"session:programs", "/tmp/new.json"}}));
    EXPECT_THAT(shell("echo wrong | vardctl login alice 2>&1").text, HasSubstr("a wrong password"));
    EXPECT_EQ(info(33).size(), 0U);
    EXPECT_THAT(asks("vardctl login \"\""), testing::StartsWith("vardctl: the user"));
    EXPECT_THAT(asks("vardctl run alice New"), testing::StartsWith("vardctl: not among the published programs"));
    EXPECT_THAT(asks("runuser -u alice -- vardctl login alice"), testing::StartsWith("vardctl: login: access denied"));
    EXPECT_EQ(shell("echo | vardctl login alice").status, usage) << "an empty password";
    EXPECT_THAT(shell("echo x | vardctl login no-such-user 2>&1").text, HasSubstr("there is no such user"));
    EXPECT_THAT(typed("\\003", "vardctl login alice"), HasSubstr("alice: \r\n"));
    EXPECT_THAT(typed("\\004", "vardctl login alice"), HasSubstr("alice: \r\nvardctl: the password is empty"));
    EXPECT_THAT(typed("half\\003", "trap : INT; vardctl login alice; stty -a"), ContainsRegex("[^-]echo "))
        << "an interrupt gives the terminal back as it was";

    writeFile("/tmp/new.json", R"([{"name":"New","path":"/usr/bin/xclock"}])"); // published after the start
    EXPECT_THAT(ctl("programs").text, HasSubstr("New\n"));
    EXPECT_EQ(shell("echo secret | vardctl run alice New --json --domain work").text,
              "{\"reachable\":true,\"session\":33}\n");
    EXPECT_EQ(info(33)["xsession"], "/usr/bin/xclock");
    EXPECT_EQ(info(33)["domain"], "work");
    const auto shown = typed("topsecret\\n", "vardctl login alice --domain corp --no-check");
    EXPECT_THAT(shown, HasSubstr("Password for alice: \r\n34"));
    EXPECT_THAT(shown, Not(HasSubstr("topsecret")));
    EXPECT_EQ(info(34)["domain"], "corp");
}

} // namespace
