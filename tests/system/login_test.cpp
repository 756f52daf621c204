// One login, as the user's programs find it.
#include "service.h"

#include <gmock/gmock.h>

namespace {

using namespace Test;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Login : public ServiceTest {
protected:
    /// Starts the service with a PAM service that tells what it is asked, and a session program that writes what it
    /// finds around it.
    void startRecording() {
        mustRun("groupadd -f project && usermod -aG project -c umask=0007 alice; rm -f /tmp/pam.log");
        writeFile("/usr/local/bin/record", "#!/bin/sh\necho \"$PAM_TYPE\" >> /tmp/pam.log\n", 0755);
        std::string stack = "@include vard\nsession required pam_env.so user_readenv=0 conffile=/etc/pam.env\n";
        for (const char* type : {"auth", "account", "session"}) {
            stack.insert(0, std::string(type) + " required pam_exec.so quiet /usr/local/bin/record\n");
        }
        writeFile("/etc/pam.d/recorded", stack);
        writeFile("/etc/pam.env",
                  "FROM_PAM DEFAULT=yes\nDISPLAY DEFAULT=:77\nXAUTHORITY DEFAULT=/x\nXDG_RUNTIME_DIR DEFAULT=/x\n");
        const auto program = alice.script("report", R"(
{ id -un; id -Gn; pwd; umask; tty; } > ~/who
env > ~/env
cat /proc/keys > ~/keys
readlink /proc/$$/fd/* > ~/fds
grep -E 'Sig(Blk|Ign)' /proc/self/status > ~/signals
touch ~/done
exec sleep 100000)");
        start(testConfig({{"pam:service", "recorded"}, {"session:path", program}}));
    }
    std::string home(const std::string& file) { return readFile(alice.home() + "/" + file); }
    static std::string status(int pid, const std::string& field) {
        return mustRun("grep -w " + field + " /proc/" + std::to_string(pid) + "/status | cut -f2- | tr -d '\\n'");
    }
    /// Under the user's ids alone, her groups' too.
    bool isOfAlice(int pid) {
        return mustRun("grep -E '^(Uid|Gid|Groups):' /proc/" + std::to_string(pid) + "/status | cut -f2- | xargs") ==
               mustRun("u=$(id -u alice); g=$(id -g alice); echo $u $u $u $u $g $g $g $g $(id -G alice)");
    }
    /// How many descriptors of a process lead to what the service has open, too.
    std::string shared(int pid) const {
        const auto open = [](int owner) {
            return "<(ls -l /proc/" + std::to_string(owner) +
                   "/fd | sed -n 's/.*-> //p' | grep -v -x /dev/null | sort)";
        };
        return shell("bash -c \"comm -12 " + open(pid) + " " + open(service->pid()) + " | wc -l\"").text;
    }
};

TEST_F(Login, DefaultConfigurationGivesAnXorgDesktopUnderTheUser) {
    mustRun("groupadd -f project && usermod -aG project alice");
    start(Json::Value(Json::objectValue));
    Signals signals;
    ASSERT_EQ(bus.login("alice", 1280, 1024), 33);
    EXPECT_EQ(signals.upTo("signalProxyAllowConnection"), (Heard{{"signalProxyAllowConnection", {33, alice.uid()}}}));
    const auto session = info(33);
    const auto server = session["pid1"].asInt();
    EXPECT_THAT(readFile("/proc/" + std::to_string(server) + "/cmdline"), StartsWith("/usr/lib/xorg/Xorg"));
    EXPECT_TRUE(isOfAlice(server));
    EXPECT_EQ(shared(server), "0\n") << shell("ls -l /proc/" + std::to_string(server) + "/fd").text;
    EXPECT_EQ(
        shell("stat -c '%a %U %G' /tmp/.X11-unix/X33 /run/vard/xauth_33 " + session["runtimedir"].asString()).text,
        "760 alice vard-xauth\n440 alice vard-xauth\n700 alice alice\n");
    const std::string look = " runuser -u alice -- xdpyinfo -display :33";
    EXPECT_THAT(shell("XAUTHORITY=/run/vard/xauth_33" + look).text, HasSubstr("1280x1024"));
    EXPECT_THAT(shell("XAUTHORITY=/nonexistent" + look).text, HasSubstr("Authorization required"));
}

TEST_F(Login, ProgramHasTheUsersIdentityInAPamSessionOfItsOwn) {
    startRecording();
    for (const char* method : {"vardTestConnect", "vardLogin"}) {
        mustRun("rm -f /tmp/pam.log");
        EXPECT_EQ(bus.call(method, "sss", "alice", "", "wrong").number, 0) << method;
        EXPECT_EQ(readFile("/tmp/pam.log"), "account\nauth\n");
    }
    EXPECT_EQ(bus.call("vardTestConnect", "sss", "alice", "", "secret").number, 1);
    EXPECT_EQ(bus.session(33), "{}");
    mustRun("rm /tmp/pam.log");
    EXPECT_EQ(bus.call("vardLogin", "sss", "alice", "", "secret").number, 1);
    ASSERT_TRUE(waitUntil([&] { return exists(alice.home() + "/done"); }));
    EXPECT_EQ(readFile("/tmp/pam.log"), "account\nauth\naccount\nopen_session\n");

    EXPECT_EQ(home("who"), "alice\nalice project\n/home/alice\n0007\nnot a tty\n");
    EXPECT_THAT(home("keys"), HasSubstr(" _ses")) << "a keyring shared with other sessions";
    for (const char* variable :
         {"FROM_PAM=yes", "DISPLAY=:33", "XAUTHORITY=/run/vard/xauth_33", "USER=alice", "LOGNAME=alice",
          "HOME=/home/alice", "SHELL=/bin/bash", "TERM=linux", "XDG_RUNTIME_DIR=/run/user/"}) {
        EXPECT_THAT("\n" + home("env"), HasSubstr("\n" + std::string(variable)));
    }
    EXPECT_THAT(home("env"), Not(HasSubstr("VARD_SANDBOX"))) << "the service's environment";
    EXPECT_EQ(home("fds"), "/dev/null\n/dev/null\n/dev/null\n/home/alice/report\n");
    // SIGHUP and SIGINT ignored, nothing else, nothing blocked.
    EXPECT_EQ(home("signals"), "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000003\n");

    bus.call("vardSessionShutdown", "u", 33U);
    EXPECT_TRUE(waitUntil([] { return readFile("/tmp/pam.log").ends_with("open_session\nclose_session\n"); }));
}

TEST_F(Login, SupervisorKeepsNothingOfTheServiceAndEndsWithIt) {
    const Account bob("bob");
    // No client of the X server, which would end with that.
    start(testConfig({{"session:path", alice.script("program", "exec sleep 12345")}}));
    const std::string secret = "a password whose end is hidden";
    ASSERT_EQ(bus.call("busSessionRequest", "ssyqq", "bob", secret.c_str(), 24, 640, 480).number, 33);
    bus.call("busSetDebugLevel", "s", std::string(4096, ' ').c_str()); // over what the library read last
    ASSERT_EQ(bus.login("alice"), 34);
    const int supervisor = info(34)["pid2"].asInt();
    const std::string proc = "/proc/" + std::to_string(supervisor);
    EXPECT_TRUE(waitUntil([&] { return status(supervisor, "Name") == "vard_manager" && isOfAlice(supervisor); }));
    EXPECT_THAT(readFile(proc + "/cmdline"), Not(HasSubstr(Service::configFile)));
    EXPECT_NE(shell("stat -c %U " + proc + "/mem").text, "alice\n") << "not dumpable";
    // Neither the bus nor another session's X server nor the service's terminal: of what the service has, the journal's
    // socket alone. (A PAM module that had something to log has opened another one to the system log.)
    EXPECT_EQ(shared(supervisor), "1\n") << shell("ls -l " + proc + "/fd").text;
    EXPECT_TRUE(inMemory(service->pid(), info(33)["ntlm"].asString()) && inMemory(service->pid(), "end is hidden"));
    EXPECT_FALSE(inMemory(supervisor, info(33)["ntlm"].asString())) << "another's";
    EXPECT_FALSE(inMemory(supervisor, "end is hidden")) << "another's";

    // A crash of the service leaves the name to the next instance, and no program.
    ASSERT_TRUE(waitUntil([] { return processes("sleep 12345").size() == 2; }));
    EXPECT_EQ(status(processes("sleep 12345", "alice")[0], "Umask"), "0022") << "the system's, by PAM";
    service->kill();
    EXPECT_TRUE(waitUntil([&] { return !bus.owned(); }));
    EXPECT_TRUE(waitUntil([] { return processes("sleep 12345").empty() && processes("vard_manager").empty(); }));
}

// Every method that takes one, but for the one whose request is logged on purpose.
TEST_F(Login, PasswordIsInNoLogLineAndNoFile) {
    writeFile("/etc/vard/programs.json", R"([{"name":"Clock","path":"/usr/bin/xclock"}])");
    start();
    const char* password = "Tr0ub4dor";
    for (const char* user : {"alice", "nobody"}) {
        bus.call("busSessionRequest", "ssyqq", user, password, 24, 640, 480);
        bus.call("busSessionDomainRequest", "sssyqq", user, "dom", password, 24, 640, 480);
        bus.call("busProgramRequest", "sssqqs", user, "dom", password, 640, 480, "Clock");
        EXPECT_EQ(bus.call("vardLogin", "sss", user, "dom", password).number, 0);
        EXPECT_EQ(bus.call("vardTestConnect", "sss", user, "dom", password).number, 0);
        EXPECT_EQ(bus.call("vardCheckAuthUser", "sss", user, password, "vard").number, 0);
    }
    EXPECT_EQ(bus.call("zabbixSessionsTotal").number, 2);
    mustRun("journalctl --sync");
    EXPECT_EQ(shell("journalctl -a -o export | grep -a -F Tr0ub4dor").text, "") << "of whatever program";
    EXPECT_EQ(shell("grep -rl Tr0ub4dor /run /home /var/log /tmp/.X11-unix").text, "");
}

} // namespace
