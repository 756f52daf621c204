// What a user can do to the service with files, processes and a home directory of his own: nothing.
#include "service.h"

namespace {

using namespace Test;

class HostileUser : public ServiceTest {};

TEST_F(HostileUser, PlantedFilesAreNotFollowedReadOrWaitedFor) {
    mustRun("cp /etc/passwd /tmp/victim");
    start();
    const std::string log = "/home/alice/.vard/xauth_33.log";
    for (const std::string& plant : {"ln -s /tmp/victim " + log, "mkfifo " + log, "ln -s /proc/kmsg " + log,
                                     std::string("rmdir /home/alice/.vard; ln -s /etc /home/alice/.vard")}) {
        mustRun("runuser -u alice -- sh -c 'rm -rf /home/alice/.vard; mkdir /home/alice/.vard; " + plant + "'");
        EXPECT_EQ(bus.login("alice"), 33) << plant;
        EXPECT_EQ(info(33)["ntlm"].asString(), "") << plant;
    }
    EXPECT_EQ(shell("cmp /etc/passwd /tmp/victim").status, 0);
    EXPECT_FALSE(exists("/etc/xauth_33.log"));
}

TEST_F(HostileUser, DyingInTheMiddleOfTheStartLeavesNothing) {
    // Every process of the user's, the X server too.
    start(testConfig({{"xrandr:path", alice.script("xrandr", "kill -KILL -1")}}));
    for (int i = 0; i < 3; ++i) {
        bus.login("alice", 800, 600); // whatever it answers
        bus.login("alice", 640, 481);
    }
    bus.call("vardSessionShutdown", "u", 33U);
    EXPECT_TRUE(waitUntil([&] { return bus.session(33) == "{}"; }));
    expectNothingLeft();
}

} // namespace
