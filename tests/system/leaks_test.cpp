// Two hundred sessions started, used and ended: the service is what it was before.
#include "service.h"

#include <csignal>
#include <cstdio>
#include <sstream>

namespace {

using namespace Test;

constexpr int parallel = 20;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long memoryGrowth = 1 << 30; // the sanitizers keep what was freed
#else
constexpr long memoryGrowth = 2048; // KiB; one leaked record with its connection for each session would be more
#endif

/// What a process has of everything that could leak: lines of a name and a number.
std::string holdings(int pid) {
    return mustRun("cd /proc/" + std::to_string(pid) + R"sh( && echo "descriptors $(ls fd | wc -l)
threads $(ls task | wc -l)
children $(cat task/*/children | wc -w)
mounts $(wc -l < mounts)
files $(ls -A /run/vard /run/user /tmp/.X11-unix /tmp | wc -l)
KiB $(awk '/^Anonymous:/ { sum += $2 } END { print sum }' smaps_rollup)")sh");
}

/// True when nothing has grown, but for some memory.
bool isNoMore(const std::string& after, const std::string& before) {
    std::istringstream first(before);
    std::istringstream second(after);
    long had = 0;
    long has = 0;
    for (std::string name; first >> name >> had && second >> name >> has;) {
        if (has > had + (name == "KiB" ? memoryGrowth : 0)) {
            return false;
        }
    }
    return true;
}

class Leaks : public ServiceTest {
protected:
    Leaks() {
        start(testConfig({{"helper:notification", "/bin/true"}, {"debug:level", "info"}}));
        for (int i = 0; i < parallel; ++i) {
            users.push_back(std::make_unique<Account>("user" + std::to_string(i)));
        }
    }

    void use() {
        for (const auto& user : users) {
            const auto sid = static_cast<uint32_t>(bus.login(user->name()));
            bus.call("proxySessionConnected", "uus", sid, static_cast<uint32_t>(launch("sleep 0.5")), "10.1.2.3");
            bus.call("vardSendNotify", "ussy", sid, "header", "message", 1);
            bus.call("vardSessionProcess", "u", sid);
        }
        EXPECT_EQ(bus.call("zabbixSessionsTotal").number, parallel);
    }
    // A third of the sessions ends by its server, a third by its program, the others on request.
    void round() {
        Signals signals;
        use();
        for (uint32_t sid = 33; sid < 33 + parallel; ++sid) {
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
};

TEST_F(Leaks, TwoHundredSessionsLeaveNothing) {
    round(); // what is loaded and cached once
    const auto before = holdings(service->pid());
    for (int i = 0; i < 10; ++i) {
        round();
    }
    std::string after;
    EXPECT_TRUE(waitUntil([&] { return isNoMore(after = holdings(service->pid()), before); }));
    std::printf("after 20 sessions:\n%safter 220 sessions:\n%s", before.c_str(), after.c_str());
}

TEST_F(Leaks, ManySessionsEndTogetherAtAStop) {
    use();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(service->stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10)) << "one after the other";
    EXPECT_EQ(shell("pgrep -x 'Xvfb|xterm'; ls -A /run/vard /tmp/.X11-unix | grep -v :").text, "\n");
}

} // namespace
