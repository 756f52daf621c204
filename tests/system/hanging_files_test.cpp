// A file system of a user's own whose server never answers: what waits for it waits beyond SIGKILL.
#include "attacker.h"

#include <future>
#include <set>

namespace {

using namespace Test;
using namespace std::chrono_literals;

class HangingFiles : public AttackTest {
protected:
    struct Held {
        size_t threads;
        size_t children;
    };
    Held held() const {
        const auto tasks = "/proc/" + std::to_string(service->pid()) + "/task";
        return {std::stoul(shell("ls " + tasks + " | wc -l").text), childrenOf(service->pid()).size()};
    }
    // Those in the kernel's uninterruptible wait, without what the journal's library holds.
    static std::set<std::string> inherited() {
        std::set<std::string> descriptors;
        const std::string hung =
            shell("for p in $(ps -u mallory -o pid=,stat= | awk '$2 ~ /D/ { print $1 }'); do ls /proc/$p/fd; done")
                .text;
        std::istringstream list(hung);
        for (std::string number; list >> number;) {
            if (number.size() > 1 || number > "2") {
                descriptors.insert(number);
            }
        }
        return descriptors;
    }
    void request(Bystander& others, const std::string& which, double limit) {
        int64_t sid = 0;
        const double took = timed([&] { sid = bus.login("mallory"); });
        EXPECT_GT(sid, 0) << "without a hash line, but not without a session";
        figure(which + " request took", took);
        expectAtMost(which + " request, others waited", others.longest(), limit);
    }
};

TEST_F(HangingFiles, HangingLogIsOneChildThatHoldsNothing) {
    startWith();
    ASSERT_GT(bus.login("mallory"), 0);
    ASSERT_EQ(bus.login("alice"), 34);
    const double usual = timed([&] { bus.login("alice"); });
    hangFiles(".vard");
    Bystander others;
    request(others, "first", 6.5);
    std::this_thread::sleep_for(1500ms); // threads of the request's own go
    const auto before = held();
    for (const char* which : {"second", "third"}) {
        request(others, which, 1.5);
    }
    std::this_thread::sleep_for(1500ms);
    const auto after = held();
    expectAtMost("threads after two more requests", double(after.threads), double(before.threads));
    expectAtMost("children after two more requests", double(after.children), double(before.children));
    expectAtMost("descriptors of hung children beyond three", double(inherited().size()), 1); // the journal's socket
    const double meanwhile = timed([&] { EXPECT_EQ(bus.login("alice"), 34); });
    figure("another's usual request", usual);
    expectAtMost("another's request meanwhile", meanwhile, 2 * usual + 0.2);
}

TEST_F(HangingFiles, ServiceEndsAndStartsAgainBesideAHungChild) {
    startWith();
    hangFiles(".vard");
    EXPECT_GT(bus.login("mallory"), 0);
    expectRestart();
}

// The server's own process waits for the file system for ever, after it has started what draws the screen.
TEST_F(HangingFiles, ServerThatNothingEndsLosesItsSessionAndNotItsDisplay) {
    startWith({{"xvfb:path", program("server", "Xvfb \"$@\" & exec 3<~/hanging/file", "exec Xvfb \"$@\"")}});
    hangFiles("hanging");
    ASSERT_EQ(bus.login("mallory"), 33);
    ASSERT_TRUE(waitUntil([] { return !processes("sleep 12345", "mallory").empty(); }));
    bus.call("vardSessionShutdown", "u", 33U);
    const double ended = untilEnded(33, 30s);
    const double gone = ended + untilGone("mallory", 15s, "sleep 12345");
    expectAtMost("session in the table after its shutdown", ended, 13);
    expectAtMost("its program ran on after the shutdown", gone, 18);
    EXPECT_EQ(bus.login("alice"), 34) << "the display is the hung server's";
    expectRestart();
}

} // namespace
