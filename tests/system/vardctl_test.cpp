// The administrators' command, as installed, against the real service.
#include "service.h"

#include <gmock/gmock.h>

namespace {

using namespace Test;
using testing::HasSubstr;

enum Exit { done = 0, failed = 1, usage = 2, notRunning = 3, denied = 4 };

Output ctl(const std::string& words) { return shell("vardctl " + words); }

Json::Value json(const std::string& words) {
    Json::Value value;
    std::istringstream(mustRun("vardctl " + words + " --json")) >> value;
    return value;
}

/// `vardctl watch`, writing to a file.
class Watch {
public:
    explicit Watch(const std::string& words = "") {
        pid_ = std::stoi(mustRun("vardctl watch " + words + " >" + file + " 2>&1 & echo $!"));
        sees("service");
    }
    ~Watch() { shell("kill " + std::to_string(pid_)); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    bool sees(const std::string& text) const {
        return waitUntil([&] { return readFile(file).find(text) != std::string::npos; });
    }
    [[nodiscard]] int pid() const { return pid_; }

    static constexpr const char* file = "/tmp/watch";

private:
    int pid_ = -1;
};

/// What a terminal shows when a command has asked for a password and the keys are then typed.
std::string typed(const std::string& keys, const std::string& command) {
    shell("rm -f /tmp/screen; (until grep -q Password /tmp/screen; do sleep 0.05; done; printf '" + keys +
          "') 2>/dev/null | timeout 60 script -qfec '" + command + "' /tmp/screen");
    return readFile("/tmp/screen");
}

class VardctlTest : public ServiceTest {
protected:
    void logIn() { ASSERT_EQ(mustRun("echo secret | vardctl login alice --width 640 --height 480"), "33\n"); }
};

TEST_F(VardctlTest, SessionsAreStartedShownAndEnded) {
    start();
    const Watch watch;
    EXPECT_EQ(ctl("list --no-legend").text, "");
    logIn();
    EXPECT_THAT(ctl("list").text,
                testing::ContainsRegex("^SESSION USER .*\n +33 alice :33 +detached - .* 640x480 /usr/bin/xterm\n$"));
    EXPECT_EQ(json("list")[0]["state"], "detached");
    EXPECT_THAT(ctl("show 33").text, HasSubstr("\nhome=/home/alice\n"));
    EXPECT_EQ(json("show alice")[0]["sid"], 33);
    EXPECT_EQ(json("status")["sessions"], 1);
    EXPECT_THAT(ctl("status").text, HasSubstr("Sessions: 1\nOnline:   0\n"));
    EXPECT_TRUE(
        waitUntil([] { return ctl("processes 33 --no-legend").text.find(" /usr/bin/xterm\n") != std::string::npos; }));
    EXPECT_EQ(ctl("address alice").status, failed);
    EXPECT_EQ(ctl("disconnect 33").status, failed) << "nobody is connected";
    EXPECT_EQ(ctl("shutdown alice").status, done);
    EXPECT_TRUE(watch.sees("signalSessionShutdown session=33\n"));
    EXPECT_THAT(readFile(Watch::file), HasSubstr(" signalProxyAllowConnection session=33 uid="));
    EXPECT_EQ(ctl("list --no-legend").text, "");
}

TEST_F(VardctlTest, SessionsAreChanged) {
    auto config = testConfig();
    config["helper:notification"] = alice.script("helper", "printf '%s|' \"$@\" >/home/alice/notice");
    start(config);
    logIn();
    EXPECT_EQ(ctl("limit 33 --duration 1000 --inactivity 7").status, done);
    EXPECT_EQ(info(33)["durationLimit"], 1000);
    EXPECT_EQ(info(33)["inactivityLimit"], 7);
    EXPECT_EQ(ctl("notify 33 --header Title --level 2 -- '--at noon'").status, done);
    EXPECT_TRUE(waitUntil([] {
        return readFile("/home/alice/notice") == "--header|\"Title\"|--message|\"--at noon\"|--level|2|";
    })) << readFile("/home/alice/notice");
    EXPECT_EQ(ctl("resize 33 640x480").status, done);
    const auto other = ctl("resize 33 5000x4000");
    EXPECT_EQ(other.status, failed);
    EXPECT_THAT(other.text, HasSubstr("the size is now 640x480"));
}

TEST_F(VardctlTest, WhatUsersWroteIsShownButDoesNothing) {
    mustRun("perl -pi -e 's/Test Person/Evil \\e[2J/' /etc/passwd"); // as another account source may deliver it
    start();
    ASSERT_EQ(mustRun("echo secret | vardctl login alice --domain \"$(printf 'a\\nb\\033c')\""), "33\n");
    ASSERT_TRUE(
        bus.call("proxySessionConnected", "uus", 33U, static_cast<uint32_t>(::getpid()), "10.0.0.1 \x1b[2J").ok());
    EXPECT_THAT(ctl("list").text, HasSubstr(" online 10.0.0.1\\x20\\x1b[2J "));
    const auto shown = ctl("show 33").text;
    EXPECT_THAT(shown, HasSubstr("\ndomain=a\\nb\\x1bc\n"));
    EXPECT_THAT(shown, HasSubstr("\ngecos=Evil \\x1b[2J\n"));
    EXPECT_THAT(ctl("show 33 --json").text, HasSubstr("\"Evil \\u001b[2J\""));
    EXPECT_EQ(json("show 33")["domain"],
              "a\nb\x1b"
              "c");
}

TEST_F(VardctlTest, SecretsStayHiddenUnlessAskedFor) {
    start();
    logIn();
    const auto hash = info(33)["ntlm"].asString();
    ASSERT_FALSE(hash.empty());
    EXPECT_THAT(ctl("show 33").text + ctl("show alice --json").text, testing::Not(HasSubstr(hash)));
    EXPECT_THAT(ctl("show 33 --secrets").text, HasSubstr(hash));
    const auto shown = typed("topsecret\\n", "vardctl login alice");
    EXPECT_THAT(shown, HasSubstr("Password for alice: \r\n33"));
    EXPECT_THAT(shown, testing::Not(HasSubstr("topsecret")));
    EXPECT_THAT(typed("half\\003", "trap : INT; vardctl login alice; stty -a"), testing::ContainsRegex("[^-]echo "))
        << "an interrupt gives the terminal back as it was";
}

TEST_F(VardctlTest, ProgramsAreListedAndRun) {
    writeFile("/tmp/programs.json", R"([{"name":"Clock","path":"/usr/bin/xclock"}])");
    auto config = testConfig();
    config["session:programs"] = "/tmp/programs.json";
    start(config);
    EXPECT_THAT(ctl("programs").text, HasSubstr("Clock\n"));
    const auto unknown = shell("echo secret | vardctl run alice Klock");
    EXPECT_EQ(unknown.status, failed);
    EXPECT_THAT(unknown.text, HasSubstr("not among the published programs: Klock"));
    EXPECT_EQ(shell("echo secret | vardctl run alice Clock --json").text, "{\"session\":33}\n");
    EXPECT_EQ(info(33)["xsession"], "/usr/bin/xclock");
}

TEST_F(VardctlTest, WatchStaysWhenTheServiceGoesAndBelievesNobodyElse) {
    start();
    const Watch watch("--json");
    const auto address =
        mustRun("busctl list --no-legend | awk '$2 == " + std::to_string(watch.pid()) + " { print $1 }' | tr -d '\\n'");
    mustRun("runuser -u alice -- busctl emit --destination=" + address +
            " /ru/korvex/vard ru.korvex.vard signalSessionShutdown u 666");
    logIn();
    EXPECT_EQ(ctl("stop").status, done);
    EXPECT_EQ(service->wait(), 0);
    EXPECT_TRUE(watch.sees("\"event\":\"serviceLeft\""));
    EXPECT_EQ(ctl("status").status, notRunning);
    start();
    EXPECT_TRUE(watch.sees("\"event\":\"serviceAppeared\""));
    EXPECT_THAT(readFile(Watch::file), HasSubstr("{\"event\":\"signalProxyAllowConnection\",\"session\":33,"));
    EXPECT_THAT(readFile(Watch::file), testing::Not(HasSubstr("666")));
    EXPECT_EQ(shell("timeout 60 bash -c 'vardctl watch | head -n1 >/dev/null'").status, done) << "its reader is gone";
}

TEST_F(VardctlTest, ExitCodesTellWhatWentWrong) {
    EXPECT_EQ(ctl("list").status, notRunning);
    EXPECT_EQ(shell("DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nowhere vardctl list").status, notRunning);
    start();
    for (const char* words :
         {"show 99", "show nobody", "processes 99", "notify 99 text", "limit 99 --duration 1", "resize 99 640x480",
          "disconnect 99", "shutdown 99", "shutdown nobody", "address nobody", "show --user 33", "list >/dev/full"}) {
        EXPECT_EQ(ctl(words).status, failed) << words;
    }
    EXPECT_EQ(shell("echo x | vardctl login no-such-user").status, failed);
    for (const char* words : {"", "nonsense", "show", "limit 33", "notify 33 text --level 256", "resize 33 big",
                              "log-level loud", "login alice </dev/null", "login alice --depth 0 </dev/null"}) {
        EXPECT_EQ(ctl(words).status, usage) << words;
    }
    for (const char* words : {"--help", "login --help", "--version", "log-level debug"}) {
        EXPECT_EQ(ctl(words).status, done) << words;
    }
    const auto refused = shell("runuser -u alice -- vardctl list");
    EXPECT_EQ(refused.status, denied);
    EXPECT_THAT(refused.text, HasSubstr("members of the group vard-frontend"));
    EXPECT_EQ(shell("runuser -u alice -- timeout 60 vardctl watch").status, denied) << "it would hear nothing for ever";
    EXPECT_THAT(shell("runuser -u alice -- vardctl stop").text, HasSubstr("root alone"));
}

TEST_F(VardctlTest, TheShellCompletesSessionsAndUsers) {
    start();
    logIn();
    const auto completed = [](const std::string& words) {
        return shell("bash -c '. /usr/share/bash-completion/completions/vardctl; COMP_WORDS=(vardctl " + words +
                     "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _vardctl; echo ${COMPREPLY[*]}'")
            .text;
    };
    EXPECT_EQ(completed("show \"\""), "33 alice\n");
    EXPECT_EQ(completed("limit --duration 4 \"\""), "33\n");
    EXPECT_EQ(completed("sh"), "show shutdown\n");
    EXPECT_EQ(completed("list --n"), "--no-legend\n");
}

} // namespace
