// One login, as the user's programs find it.
#include "service.h"

#include <algorithm>
#include <sstream>

namespace {

using namespace Test;

class Login : public ServiceTest {
protected:
    /// A session program that writes what it finds around it, then stays.
    std::string reporter() {
        return alice.script("report", R"(
{ id; id -G; pwd; umask; tty; } > ~/who
env > ~/env
cat /proc/keys > ~/keys
ls -l /proc/$$/fd > ~/fds
grep -E 'Sig(Blk|Ign|Cgt)' /proc/self/status > ~/signals
touch ~/done
exec sleep 100000)");
    }
    std::string home(const std::string& file) { return readFile(alice.home() + "/" + file); }
    static std::string status(int pid, const std::string& field) {
        return mustRun("grep -w " + field + " /proc/" + std::to_string(pid) + "/status | cut -f2- | tr -d '\\n'");
    }
};

TEST_F(Login, DefaultConfigurationGivesAnXorgDesktopUnderTheUser) {
    start(Json::Value(Json::objectValue));
    Signals signals;
    ASSERT_EQ(bus.login("alice", 1280, 1024), 33);
    EXPECT_EQ(signals.upTo("signalProxyAllowConnection"),
              (std::vector<Signal>{{"signalProxyAllowConnection", {33, alice.uid()}}}));
    const auto session = info(33);
    EXPECT_EQ(session["width"].asInt(), 1280);
    EXPECT_EQ(session["height"].asInt(), 1024);
    EXPECT_EQ(session["depth"].asInt(), 24);
    EXPECT_EQ(session["gecos"].asString(), "Test Person");
    EXPECT_TRUE(session["sec:nla"].asBool() && session["sec:auth"].asBool());
    const auto server = session["pid1"].asInt();
    EXPECT_EQ(readFile("/proc/" + std::to_string(server) + "/cmdline").substr(0, 21),
              std::string("/usr/lib/xorg/Xorg\0:", 20) + "3");
    const std::string id = std::to_string(alice.uid());
    EXPECT_EQ(status(server, "Uid"), id + "\t" + id + "\t" + id + "\t" + id);
    EXPECT_EQ(shell("stat -c '%a %U' /tmp/.X11-unix/X33").text, "700 alice\n");
    EXPECT_EQ(shell("stat -c '%a %U %G %s' /run/vard/xauth_33").text, "440 alice vard-xauth 69\n");
    EXPECT_EQ(shell("stat -c '%a %U %G' " + session["runtimedir"].asString()).text, "700 alice alice\n");
    EXPECT_NE(
        shell("runuser -u alice -- env XAUTHORITY=/run/vard/xauth_33 xdpyinfo -display :33").text.find("1280x1024"),
        std::string::npos);
    EXPECT_NE(shell("runuser -u alice -- env XAUTHORITY=/nonexistent xdpyinfo -display :33").status, 0);
    EXPECT_TRUE(journal.audit("VARD:SessionLogin=\"alice\"", "terminal=:33 res=success"));
}

TEST_F(Login, SessionProgramHasTheUsersIdentityAndNothingOfTheService) {
    mustRun("groupadd -f project && usermod -aG project alice");
    auto config = testConfig();
    config["session:path"] = reporter();
    start(config);
    ASSERT_EQ(bus.login("alice"), 33);
    ASSERT_TRUE(waitUntil([&] { return exists(alice.home() + "/done"); }));
    EXPECT_NE(home("who").find("uid=" + std::to_string(alice.uid()) + "(alice)"), std::string::npos);
    EXPECT_NE(home("who").find("project"), std::string::npos);
    EXPECT_EQ(home("who").find("(root)"), std::string::npos);
    EXPECT_NE(home("keys").find(" _ses"), std::string::npos)
        << "a keyring shared with other sessions: " << home("keys");
    EXPECT_NE(home("who").find("\n/home/alice\n0022\nnot a tty\n"), std::string::npos) << home("who");
    for (const char* variable : {"DISPLAY=:33", "XAUTHORITY=/run/vard/xauth_33", "USER=alice", "LOGNAME=alice",
                                 "HOME=/home/alice", "SHELL=/bin/bash", "TERM=linux", "XDG_RUNTIME_DIR=/run/user/"}) {
        EXPECT_NE(("\n" + home("env")).find("\n" + std::string(variable)), std::string::npos) << variable;
    }
    EXPECT_EQ(home("env").find("VARD_SANDBOX"), std::string::npos) << "the service's environment";
    std::istringstream fds(home("fds"));
    std::vector<std::string> open;
    for (std::string line; std::getline(fds, line);) {
        if (line.find("->") != std::string::npos && line.find("/report") == std::string::npos) {
            open.push_back(line.substr(line.find("->")));
        }
    }
    EXPECT_TRUE(std::ranges::all_of(open, [&](const auto& link) {
        return link == "-> /dev/null" || link == "-> " + alice.home() + "/fds";
    })) << home("fds");
    // SIGHUP and SIGINT ignored, nothing else, nothing blocked.
    EXPECT_NE(home("signals").find("SigIgn:\t0000000000000003"), std::string::npos) << home("signals");
    EXPECT_EQ(home("signals").find("SigBlk:\t0000000000000000"), 0U);
}

TEST_F(Login, SupervisorKeepsNothingOfTheService) {
    start();
    ASSERT_EQ(bus.login("alice"), 33);
    const int supervisor = info(33)["pid2"].asInt();
    EXPECT_TRUE(waitUntil([&] { return status(supervisor, "Name") == "vard_manager"; }));
    const std::string id = std::to_string(alice.uid());
    EXPECT_TRUE(waitUntil([&] { return status(supervisor, "Uid") == id + "\t" + id + "\t" + id + "\t" + id; }));
    EXPECT_EQ((" " + status(supervisor, "Groups") + " ").find(" 0 "), std::string::npos) << "root's group";
    EXPECT_EQ(readFile("/proc/" + std::to_string(supervisor) + "/cmdline").find("vard_manager"), 0U);
    EXPECT_EQ(readFile("/proc/" + std::to_string(supervisor) + "/cmdline").find(Service::configFile),
              std::string::npos);
    // Neither the bus nor another session's X server nor the service's terminal: of what the service has, the journal's
    // socket alone. (A PAM module that had something to log has opened another one to the system log.)
    const auto open = [](int pid) {
        return "<(ls -l /proc/" + std::to_string(pid) + "/fd | sed -n 's/.*-> //p' | grep -v -x /dev/null | sort)";
    };
    EXPECT_EQ(shell("bash -c \"comm -12 " + open(supervisor) + " " + open(service->pid()) + " | wc -l\"").text, "1\n")
        << shell("ls -l /proc/" + std::to_string(supervisor) + "/fd").text;
    EXPECT_EQ(shell("ls -l /proc/" + std::to_string(supervisor) + "/fd | grep -c -v -e null -e total -e socket").text,
              "0\n");
    EXPECT_NE(shell("stat -c %U /proc/" + std::to_string(supervisor) + "/mem").text, "alice\n") << "not dumpable";
    // A crash of the service leaves the name to the next instance, which answers.
    ::kill(service->pid(), SIGKILL);
    service->wait();
    EXPECT_FALSE(bus.owned());
}

TEST_F(Login, PamAccountComesBeforeThePasswordAndTheSessionIsOpenedAndClosed) {
    writeFile("/usr/local/bin/record", "#!/bin/sh\necho \"$PAM_TYPE $PAM_USER\" >> /tmp/pam.log\n", 0755);
    writeFile("/etc/pam.d/recorded",
              "auth required pam_exec.so quiet /usr/local/bin/record\n"
              "auth required pam_unix.so nodelay\n"
              "account required pam_exec.so quiet /usr/local/bin/record\n"
              "account required pam_unix.so\n"
              "session required pam_exec.so quiet /usr/local/bin/record\n"
              "session required pam_env.so user_readenv=0 conffile=/etc/pam.env\n");
    writeFile("/etc/pam.env", "FROM_PAM DEFAULT=yes\n");
    auto config = testConfig();
    config["pam:service"] = "recorded";
    config["session:path"] = reporter();
    start(config);
    EXPECT_EQ(bus.call("vardLogin", "sss", "alice", "", "wrong").number, 0);
    EXPECT_EQ(readFile("/tmp/pam.log"), "account alice\nauth alice\n");
    mustRun("rm /tmp/pam.log");
    EXPECT_EQ(bus.call("vardLogin", "sss", "alice", "", "secret").number, 1);
    ASSERT_TRUE(waitUntil([&] { return exists(alice.home() + "/done"); }));
    EXPECT_NE(home("env").find("FROM_PAM=yes"), std::string::npos);
    EXPECT_EQ(readFile("/tmp/pam.log"), "account alice\nauth alice\naccount alice\nopen_session alice\n");
    bus.call("vardSessionShutdown", "u", 33U);
    EXPECT_TRUE(waitUntil([] { return readFile("/tmp/pam.log").find("close_session alice") != std::string::npos; }));
}

TEST_F(Login, PasswordIsInNoLogLineAndNoFile) {
    start();
    ASSERT_EQ(bus.call("busSessionDomainRequest", "sssyqq", "alice", "dom", "Tr0ub4dor", 24, 640, 480).number, 33);
    EXPECT_EQ(info(33)["domain"].asString(), "dom");
    EXPECT_FALSE(journal.has("Tr0ub4dor"));
    EXPECT_EQ(shell("grep -rl Tr0ub4dor /run/vard /home/alice /tmp/.X11-unix").text, "");
}

} // namespace
