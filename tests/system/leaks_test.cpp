// Two hundred sessions started, used and ended: the service is what it was before.
#include "service.h"

#include <csignal>
#include <cstdio>
#include <fstream>

namespace {

using namespace Test;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool memoryIsOurs = false; // the sanitizers keep what was freed
#else
constexpr bool memoryIsOurs = true;
#endif
constexpr int parallel = 20;
constexpr long memoryGrowth = 2048; // KiB; one leaked record with its connection for each session would be more

/// What a process has of everything that could leak.
struct Holdings {
    long descriptors = 0;
    long threads = 0;
    long children = 0;
    long mounts = 0;
    long files = 0;
    long memory = 0; // KiB, of its own
};

long counted(const std::string& command) { return std::stol(mustRun(command)); }

Holdings holdings(int pid) {
    const std::string proc = "/proc/" + std::to_string(pid);
    return {counted("ls " + proc + "/fd | wc -l"),
            counted("ls " + proc + "/task | wc -l"),
            static_cast<long>(childrenOf(pid).size()),
            counted("wc -l < /proc/self/mounts"),
            counted("ls -A /run/vard /tmp/.X11-unix /tmp | wc -l"),
            counted("awk '/^Anonymous:/ { sum += $2 } END { print sum }' " + proc + "/smaps_rollup")};
}

void print(const char* when, const Holdings& held) {
    std::printf("%-20s descriptors %ld, threads %ld, children %ld, mounts %ld, files %ld, memory %ld KiB\n", when,
                held.descriptors, held.threads, held.children, held.mounts, held.files, held.memory);
}

class Leaks : public ServiceTest {
protected:
    Leaks() {
        auto config = testConfig();
        config["helper:notification"] = "/bin/true";
        config["debug:level"] = "info";
        start(config);
        for (int i = 0; i < parallel; ++i) {
            users.push_back(std::make_unique<Account>("user" + std::to_string(i)));
        }
    }

    // Every fourth session ends by its server, every fourth by its program, the others on request.
    void end(uint32_t sid) {
        const auto session = info(sid);
        if (sid % 4 == 0) {
            ::kill(session["pid1"].asInt(), SIGKILL);
        } else if (sid % 4 == 1) {
            ::kill(session["pid2"].asInt(), SIGTERM);
        } else {
            EXPECT_EQ(bus.call("vardSessionShutdown", "u", sid).number, 1);
        }
    }
    void round() {
        Signals signals;
        for (const auto& user : users) {
            const auto sid = static_cast<uint32_t>(bus.login(user->name()));
            const int transport = std::stoi(mustRun("sleep 0.5 >/dev/null 2>&1 & echo $!"));
            bus.call("proxySessionConnected", "uus", sid, static_cast<uint32_t>(transport), "10.1.2.3");
            bus.call("vardSendNotify", "ussy", sid, "header", "message", 1);
            bus.call("vardSessionProcess", "u", sid);
        }
        EXPECT_EQ(bus.call("zabbixSessionsTotal").number, parallel);
        for (uint32_t sid = 33; sid < 33 + parallel; ++sid) {
            end(sid);
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
    print("after 20 sessions", before);
    for (int i = 0; i < 10; ++i) {
        round();
    }
    Holdings after;
    EXPECT_TRUE(waitUntil([&] {
        after = holdings(service->pid());
        return after.descriptors <= before.descriptors && after.threads <= before.threads;
    }));
    print("after 220 sessions", after);
    EXPECT_EQ(after.children, 0);
    EXPECT_EQ(after.mounts, before.mounts);
    EXPECT_EQ(after.files, before.files);
    if (memoryIsOurs) {
        EXPECT_LT(after.memory, before.memory + memoryGrowth);
    }
    EXPECT_EQ(shell("ps ax -o stat= | grep -c Z").text, "0\n");
}

} // namespace
