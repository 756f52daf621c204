// Sessions on their way out: PAM modules that hang, leftovers that stay, requests that come or work meanwhile.
#include "attacker.h"

#include <csignal>
#include <fstream>

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
    /// Ends mallory's program, "sleep 12345", and answers how long the record is still found.
    double endProgram(uint32_t sid, std::chrono::seconds limit) {
        for (const int pid : processes("sleep 12345", "mallory")) {
            ::kill(pid, SIGTERM);
        }
        return untilEnded(sid, limit);
    }
    int64_t loginWithProgram() {
        const auto sid = bus.login("mallory");
        EXPECT_TRUE(waitUntil([] { return !processes("sleep 12345", "mallory").empty(); }));
        return sid;
    }
    /// What the service and those who call it say, in the order of the bus.
    static std::vector<std::string> listen(const std::function<void()>& meanwhile) {
        const int monitor =
            std::stoi(mustRun("dbus-monitor --system --profile \"sender='ru.korvex.vard'\" "
                              ">/tmp/monitor 2>&1 & echo $!"));
        waitUntil([] { return readFile("/tmp/monitor").find("NameLost") != std::string::npos; }, 10s);
        meanwhile();
        ::kill(monitor, SIGTERM);
        std::istringstream lines(
            shell("awk '$1 == \"mr\" { print \"answer\" } $1 == \"sig\" && $NF ~ /^signal/ { print $NF }' /tmp/monitor")
                .text);
        return {std::istream_iterator<std::string>(lines), {}};
    }
};

TEST_F(DyingSessions, PamModuleThatHangsAtTheEndHoldsNobodyAndIsEnded) {
    startWith({{"pam:service", pamScript("close_session", "touch /tmp/closing; sleep 98.76")}});
    const auto users = people(5);
    const double alone = median(logins(users, "alone"));
    const auto sid = loginWithProgram();
    mustRun("rm -f /tmp/closing");
    const double ended = endProgram(static_cast<uint32_t>(sid), 10s);
    EXPECT_TRUE(waitUntil([] { return exists("/tmp/closing"); }));
    expectUndelayed(logins(users, "while PAM closes"), alone);
    const double gone = timed([] { waitUntil([] { return processes("sleep 98.76").empty(); }, 15s); });
    figure("PAM hangs at the end, record found", ended);
    expectAtMost("PAM hangs at the end, module left after the logins (15: for ever)", gone, 13.0);
    const double stop = timed([&] { service->stop(); });
    expectAtMost("PAM hangs at the end, the stop took", stop, 13.0);
}

TEST_F(DyingSessions, RequestRightAfterTheProgramsEndGetsASessionThatLives) {
    const std::string leftovers =
        "if [ -e ~/leave ]; then rm ~/leave; (trap \"\" TERM; exec setsid sleep 54321) & sleep 12345; exit; fi";
    startWith({{"session:path", program("desktop", leftovers, "exec sleep 12345")}});
    mustRun("runuser -u mallory -- touch /home/mallory/leave");
    const auto sid = static_cast<uint32_t>(loginWithProgram());
    ASSERT_TRUE(waitUntil([] { return !processes("sleep 54321", "mallory").empty(); }));
    const double found = endProgram(sid, 2s);
    expectAtMost("ended session still found (2: longer)", found, 1.5);
    const auto next = bus.login("mallory");
    ASSERT_GT(next, 0);
    const double gone = untilGone("mallory", 15s, "sleep 54321");
    expectAtMost("leftovers gone after", gone, 9.0);
    std::this_thread::sleep_for(2s); // watchers' periods
    const bool lives = bus.session(static_cast<uint32_t>(next)) != "{}" && !processes("sleep 12345", "mallory").empty();
    figure("the session handed out meanwhile lives", lives);
    EXPECT_TRUE(lives);
}

TEST_F(DyingSessions, LeftoversOfRootsGoWithTheSession) {
    startWith({{"pam:service", pamScript("open_session", "setsid sleep 65432 & disown")}});
    const auto sid = loginWithProgram();
    ASSERT_TRUE(waitUntil([] { return !processes("sleep 65432").empty(); }));
    const double ended = endProgram(static_cast<uint32_t>(sid), 10s);
    expectAtMost("record found beside a leftover of root's", ended, 1.5);
    const double gone = untilGone("root", 20s, "sleep 65432");
    expectAtMost("root's leftover gone after (20: never)", gone, 10.0);
}

TEST_F(DyingSessions, ModulesStartWithoutBlockedSignals) {
    startWith({{"pam:service", pamScript("open_session", "grep SigBlk /proc/self/status >/tmp/mask")}});
    bus.login("mallory");
    ASSERT_TRUE(waitUntil([] { return readFile("/tmp/mask").find('\n') != std::string::npos; }));
    figure("blocked signals " + readFile("/tmp/mask"), 0);
    EXPECT_EQ(readFile("/tmp/mask"), "SigBlk:\t0000000000000000\n");
}

TEST_F(DyingSessions, EndDuringTheHashIsToldAfterTheAnswer) {
    startWith({{"hash:path", program("hash", "sleep 4.321; echo a-line", "echo a-line")}});
    const auto said = listen([&] {
        std::thread request([] { Bus().login("mallory"); });
        waitUntil([] { return !processes("sleep 4.321").empty() && !processes("sleep 12345", "mallory").empty(); },
                  20s);
        for (const int pid : processes("sleep 12345", "mallory")) {
            ::kill(pid, SIGTERM);
        }
        request.join();
        waitUntil([] { return readFile("/tmp/monitor").find("signalSessionShutdown") != std::string::npos; }, 10s);
    });
    std::string order;
    for (const auto& word : said) {
        order += word + " ";
    }
    std::printf("FIGURE order: %s\n", order.c_str());
    EXPECT_EQ(order, "signalProxyAllowConnection answer signalSessionDisconnected signalSessionShutdown ");
}

TEST_F(DyingSessions, OnlyAWholeLineOfAToolThatEndedWellIsAHash) {
    for (const char* body :
         {"echo a-line; exit 1", "printf half-a-line; exit 0", "echo a-line; kill -KILL $$", "exit 0"}) {
        startWith({{"hash:path", program("hash", body)}});
        const auto errors = [] {
            return shell("journalctl -q -p 3 -t vard_service | grep -c vardCreateNTLMhashFile").text;
        };
        const auto before = errors();
        const auto sid = bus.login("mallory");
        ASSERT_GT(sid, 0);
        figure(std::string("characters of the hash after \"") + body + "\"",
               double(info(sid)["ntlm"].asString().size()));
        EXPECT_EQ(info(sid)["ntlm"].asString(), "") << body;
        EXPECT_TRUE(waitUntil([&] { return errors() != before; }, 3s)) << "no error line: " << body;
        service.reset();
    }
}

} // namespace
