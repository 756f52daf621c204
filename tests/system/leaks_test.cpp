// A hundred sessions started, used and ended: the service is what it was before.
#include "service.h"

#include <csignal>
#include <sstream>

namespace {

using namespace Test;

constexpr int parallel = 20;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long memoryGrowth = 1 << 30; // the sanitizers keep what was freed
#else
constexpr long memoryGrowth = 1024; // KiB; one leaked record with its connection for each session would be more
#endif

class Leaks : public ServiceTest {
protected:
    Leaks() {
        start(testConfig({{"helper:notification", "/bin/true"}, {"debug:level", "info"}}));
        for (int i = 0; i < parallel; ++i) {
            users.push_back(std::make_unique<Account>("user" + std::to_string(i)));
        }
    }

    /// What the service has of everything that could leak.
    std::map<std::string, long> holdings() const {
        std::istringstream lines(mustRun("cd /proc/" + std::to_string(service->pid()) + R"sh( && echo "
            descriptors $(ls fd | wc -l) threads $(ls task | wc -l) children $(cat task/*/children | wc -w)
            mounts $(wc -l < mounts) files $(ls -A /run/vard /run/user /tmp/.X11-unix /tmp | wc -l)
            KiB $(awk '/^Anonymous:/ { sum += $2 } END { print sum }' smaps_rollup)")sh"));
        std::map<std::string, long> result;
        for (std::string name; lines >> name;) {
            lines >> result[name];
        }
        return result;
    }
    /// Starts a session for everybody and uses it.
    void use() {
        sessions.clear();
        for (const auto& user : users) {
            const auto sid = static_cast<uint32_t>(bus.login(user->name()));
            bus.call("proxySessionConnected", "uus", sid, static_cast<uint32_t>(launch("sleep 0.5")), "10.1.2.3");
            bus.call("vardSendNotify", "ussy", sid, "header", "message", 1);
            bus.call("vardSessionProcess", "u", sid);
            sessions.push_back(sid);
        }
        EXPECT_EQ(bus.call("zabbixSessionsTotal").number, parallel);
    }
    // A third of the sessions ends by its server, a third by its program, the others on request.
    void round() {
        Signals signals;
        use();
        for (const auto sid : sessions) {
            const auto session = info(sid);
            if (sid % 3 == 0) {
                EXPECT_EQ(bus.call("vardSessionShutdown", "u", sid).number, 1);
            } else {
                ::kill(session[sid % 3 == 1 ? "pid1" : "pid2"].asInt(), sid % 3 == 1 ? SIGKILL : SIGTERM);
            }
        }
        for (int i = 0; i < parallel; ++i) {
            signals.upTo("signalSessionShutdown");
        }
        expectNothingLeft();
    }

    std::vector<std::unique_ptr<Account>> users;
    std::vector<uint32_t> sessions;
};

TEST_F(Leaks, AHundredSessionsLeaveNothingAndManyEndTogetherAtAStop) {
    round(); // what is loaded and cached once
    auto before = holdings();
    before["KiB"] += memoryGrowth;
    for (int i = 0; i < 5; ++i) {
        round();
    }
    for (const auto& [name, had] : before) {
        EXPECT_TRUE(waitUntil([&] { return holdings().at(name) <= had; })) << name << ": " << holdings().at(name);
    }
    use();
    const auto begin = std::chrono::steady_clock::now();
    service->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10)) << "one after the other";
    EXPECT_EQ(shell("pgrep -x 'Xvfb|xterm'; ls -A /run/vard /tmp/.X11-unix | grep -v :").text, "\n");
}

} // namespace
