// Sessions on their way out: PAM modules that hang, leftovers that stay, requests that come or work meanwhile.
#include "attacker.h"

#include <csignal>

namespace {

using namespace Test;
using namespace std::chrono_literals;

class DyingSessions : public AttackTest {
protected:
    DyingSessions() { mustRun("cp /etc/pam.d/vard /etc/pam.d/attacked"); }

    /// A script that PAM runs as root, for mallory alone, when a session is opened or closed.
    static Json::Value pamScript(const std::string& type, const std::string& body) {
        mustRun("echo 'session optional pam_exec.so quiet type=" + type + " " + program("pam-" + type, body) +
                "' >>/etc/pam.d/attacked");
        return "attacked";
    }
    static void killProgram() { mustRun("pkill -TERM -u mallory -fx 'sleep 12345'"); }
    /// Ends mallory's program and answers how long the record is still found.
    double endProgram(int64_t sid) {
        killProgram();
        return untilEnded(sid);
    }
    int64_t loginWithProgram() {
        const auto sid = bus.login("mallory");
        EXPECT_TRUE(waitUntil([] { return !processes("sleep 12345", "mallory").empty(); }));
        return sid;
    }
    /// What the service and those who call it say, in the order of the bus.
    static std::string listen(const std::function<void()>& meanwhile) {
        const int monitor =
            std::stoi(mustRun("dbus-monitor --system --profile \"sender='ru.korvex.vard'\" "
                              ">/tmp/monitor 2>&1 & echo $!"));
        waitUntil([] { return readFile("/tmp/monitor").find("NameLost") != std::string::npos; }, 10s);
        meanwhile();
        ::kill(monitor, SIGTERM);
        return shell("awk '$1 == \"mr\" {print \"answer\"} $1 == \"sig\" && $NF ~ /^signal/ {print $NF}' /tmp/monitor")
            .text;
    }
};

TEST_F(DyingSessions, PamModuleThatHangsAtTheEndHoldsNobodyAndIsEnded) {
    startWith({{"pam:service", pamScript("close_session", "touch /tmp/closing; sleep 98.76")}});
    const auto alone = logins();
    const auto sid = loginWithProgram();
    mustRun("rm -f /tmp/closing");
    endProgram(sid);
    EXPECT_TRUE(waitUntil([] { return exists("/tmp/closing"); }));
    expectUndelayed(alone);
    EXPECT_LE(untilGone("root", "sleep 98.76"), 13);
    EXPECT_LE(timed([&] { service->stop(); }), 13);
}

// What PAM starts as root is not spared either.
TEST_F(DyingSessions, RequestRightAfterTheEndGetsASessionThatLivesAndLeftoversGo) {
    const std::string leftovers =
        "if [ -e ~/leave ]; then rm ~/leave; (trap \"\" TERM; exec setsid sleep 54321) & sleep 12345; exit; fi";
    const std::string modules = "grep SigBlk /proc/self/status >/tmp/mask; setsid sleep 65432 & disown";
    startWith({{"session:path", program("desktop", leftovers, "exec sleep 12345")},
               {"pam:service", pamScript("open_session", modules)}});
    mustRun("runuser -u mallory -- touch /home/mallory/leave");
    const auto sid = loginWithProgram();
    ASSERT_TRUE(waitUntil([] { return !processes("54321", "mallory").empty() && !processes("65432").empty(); }));
    EXPECT_EQ(readFile("/tmp/mask"), "SigBlk:\t0000000000000000\n") << "daemons of modules would keep it for life";
    const auto ofRoot = processes("sleep 65432");
    EXPECT_LE(endProgram(sid), 1.5);
    const auto next = loginWithProgram();
    ASSERT_GT(next, 0);
    EXPECT_LE(untilGone("mallory", "sleep 54321"), 9);
    EXPECT_TRUE(waitUntil([&] { return ::kill(ofRoot.at(0), 0) != 0; }, 10s));
    EXPECT_NE(bus.session(static_cast<uint32_t>(next)), "{}");
    EXPECT_FALSE(processes("sleep 12345", "mallory").empty());
}

TEST_F(DyingSessions, EndDuringTheHashIsToldAfterTheAnswer) {
    startWith({{"hash:path", program("hash", "sleep 4.321; echo a-line", "echo a-line")}});
    EXPECT_EQ(listen([&] {
                  std::thread request([] { Bus().login("mallory"); });
                  waitUntil([] { return !processes("sleep 4.321").empty() && !processes("sleep 12345").empty(); }, 20s);
                  killProgram();
                  request.join();
                  waitUntil([] { return readFile("/tmp/monitor").find("signalSessionShutdown") != std::string::npos; });
              }),
              "signalProxyAllowConnection\nanswer\nsignalSessionDisconnected\nsignalSessionShutdown\n");
}

TEST_F(DyingSessions, OnlyAWholeLineOfAToolThatEndedWellIsAHash) {
    startWith({{"hash:path", program("hash", ". /tmp/body")}});
    size_t errors = 0;
    for (const char* body :
         {"echo a-line; exit 1", "printf half-a-line; exit 0", "echo a-line; kill -KILL $$", "exit 0"}) {
        writeFile("/tmp/body", body);
        EXPECT_EQ(info(bus.login("mallory"))["ntlm"].asString(), "") << body;
        ++errors;
        EXPECT_TRUE(waitUntil([&] { return journal.count("vardCreateNTLMhashFile: no hash line") == errors; })) << body;
    }
}

} // namespace
