// A file system of a user's own whose server never answers: what waits for it waits beyond SIGKILL.
#include "attacker.h"

#include <set>
#include <sstream>

namespace {

using namespace Test;
using namespace std::chrono_literals;

class HangingFiles : public AttackTest {
protected:
    /// Threads and children of the service.
    std::pair<size_t, size_t> held() const {
        const auto tasks = "/proc/" + std::to_string(service->pid()) + "/task";
        return {std::stoul(shell("ls " + tasks + " | wc -l").text), childrenOf(service->pid()).size()};
    }
    /// What those in the kernel's uninterruptible wait have open beyond the first three.
    static std::vector<std::set<std::string>> hung() {
        std::istringstream lines(mustRun(
            "for p in $(ps -u mallory -o pid=,stat= | awk '$2 ~ /D/ { print $1 }'); do echo $(ls /proc/$p/fd); done"));
        std::vector<std::set<std::string>> all;
        for (std::string line; std::getline(lines, line);) {
            std::istringstream numbers(line);
            all.emplace_back(std::istream_iterator<std::string>(numbers), std::istream_iterator<std::string>());
            for (const char* usual : {"0", "1", "2"}) {
                all.back().erase(usual);
            }
        }
        return all;
    }
    void request(Bystander& others, double limit) {
        EXPECT_GT(bus.login("mallory"), 0) << "without a hash line, but not without a session";
        EXPECT_LE(others.longest(), limit);
    }
};

TEST_F(HangingFiles, HangingLogIsOneChildThatHoldsNothing) {
    startWith();
    ASSERT_GT(bus.login("mallory"), 0);
    const auto hers = bus.login("alice");
    const double usual = timed([&] { bus.login("alice"); });
    hangFiles(".vard");
    Bystander others;
    request(others, 6.5);
    std::this_thread::sleep_for(1500ms); // threads of the request's own go
    const auto before = held();
    request(others, 1.5);
    request(others, 1.5);
    EXPECT_TRUE(waitUntil([&] { return held().first <= before.first && held().second <= before.second; }, 5s));
    EXPECT_LE(timed([&] { EXPECT_EQ(bus.login("alice"), hers); }), 2 * usual + 0.3);
    ASSERT_EQ(hung().size(), 1U);
    EXPECT_LE(hung()[0].size(), 1U) << "the journal's socket";
}

// A look into a directory of the user's is no program: it is a copy of the service.
TEST_F(HangingFiles, HungLookHoldsNothingAndTheServiceEndsAndStartsAgainBesideIt) {
    startWith();
    ASSERT_GT(bus.login("mallory"), 0);
    hangFiles(".dbus");
    EXPECT_EQ(bus.call("vardSessionDBusAddress", "s", "mallory").text, "");
    ASSERT_EQ(hung().size(), 1U);
    EXPECT_LE(hung()[0].size(), 2U) << "the journal's socket and the way of its answer";
    expectRestart();
}

// The server's own process waits for the file system for ever, after it has started what draws the screen.
TEST_F(HangingFiles, ServerThatNothingEndsLosesItsSessionAndNotItsDisplay) {
    startWith({{"xvfb:path", program("server", "Xvfb \"$@\" & exec 3<~/hanging/file", "exec Xvfb \"$@\"")}});
    hangFiles("hanging");
    ASSERT_EQ(bus.login("mallory"), 33);
    ASSERT_TRUE(waitUntil([] { return !processes("sleep 12345", "mallory").empty(); }));
    bus.call("vardSessionShutdown", "u", 33U);
    const double ended = untilEnded(33);
    EXPECT_LE(ended, 13);
    EXPECT_LE(ended + untilGone("mallory", "sleep 12345"), 18);
    EXPECT_EQ(bus.login("alice"), 34) << "the display is the hung server's";
    expectRestart();
}

} // namespace
