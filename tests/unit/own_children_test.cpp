// What the process adopted is ended; what it, or a module, left running on purpose is not.
#include "own_children.h"

#include "scratch.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>

namespace {

using namespace Vard;
using namespace std::chrono_literals;

class OwnChildrenTest : public Scratch::Machine {
protected:
    static void SetUpTestSuite() {
        Machine::SetUpTestSuite();
        AdoptedChildren::adopt();
    }
    /// The grandchild that a child of foreign code, or of a session, leaves behind.
    static pid_t leaveBehind() { return std::stoi(Scratch::run("sleep 1000 >/dev/null 2>&1 & echo $!")); }
    static bool runs(pid_t pid) {
        return Scratch::run("ps -o stat= -p " + std::to_string(pid) + " || true").find_first_of("SR") == 0;
    }
    /// Looks again and again, as the watcher does.
    bool ends(pid_t pid) {
        return Scratch::waitUntil([&] { return adopted_.endOnce("test"), !runs(pid); }, 5s);
    }
    AdoptedChildren adopted_;
};

TEST_F(OwnChildrenTest, ReleasedOneHasItsTimeWhicheverThreadStartedIt) {
    pid_t released = 0;
    std::thread([&] {
        released = OwnChildren::fork();
        if (released == 0) {
            ::execlp("sleep", "sleep", "1000", nullptr);
            ::_exit(127);
        }
        OwnChildren::release(released, 1h);
        adopted_.endOnce("test"); // while it is still this thread's
    }).join();
    {
        const ForeignForks module; // it comes to the first thread at any moment
        adopted_.endOnce("test");
    }
    EXPECT_GT(adopted_.endOnce("test"), 0U);
    EXPECT_TRUE(runs(released));
    ::kill(released, SIGKILL);
    adopted_.endAll("test");
}

TEST_F(OwnChildrenTest, OnlyWhatBeganInForeignCodeIsSpared) {
    const pid_t before = leaveBehind();
    auto module = std::make_unique<ForeignForks>();
    const pid_t daemon = leaveBehind();
    EXPECT_TRUE(ends(before)) << "a module at work puts off the end of nobody";
    EXPECT_TRUE(runs(daemon));
    module.reset();
    adopted_.endAll("test");
    EXPECT_TRUE(runs(daemon));
    ::kill(daemon, SIGKILL);
    adopted_.endAll("test");
}

} // namespace
