// What a user can do to the service with files, processes and a home directory of his own: nothing.
#include "service.h"

#include <csignal>

namespace {

using namespace Test;

class HostileUser : public ServiceTest {};

TEST_F(HostileUser, PlantedFilesAreNotFollowedReadOrWaitedFor) {
    mustRun("cp /etc/passwd /tmp/victim");
    start();
    const std::string log = "/home/alice/.vard/xauth_33.log";
    for (const std::string& plant :
         std::vector<std::string>{"ln -s /tmp/victim " + log, "mkfifo " + log, "mkdir " + log,
                                  "ln -s /proc/kmsg " + log, "rmdir /home/alice/.vard; ln -s /etc /home/alice/.vard"}) {
        mustRun("runuser -u alice -- sh -c 'rm -rf /home/alice/.vard; mkdir /home/alice/.vard; " + plant + "'");
        EXPECT_EQ(bus.login("alice"), 33) << plant;
        EXPECT_EQ(info(33)["ntlm"].asString(), "") << plant;
    }
    EXPECT_EQ(shell("cmp /etc/passwd /tmp/victim").status, 0);
    EXPECT_FALSE(exists("/etc/xauth_33.log"));
}

TEST_F(HostileUser, StoppedServerLetsEveryOtherAnswerBeQuick) {
    Account bob("bob");
    start();
    ASSERT_EQ(bus.login("alice"), 33);
    ASSERT_EQ(bus.login("bob"), 34);
    const int server = info(33)["pid1"].asInt();
    ::kill(server, SIGSTOP);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(info(33).isMember("width"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
    EXPECT_EQ(info(34)["width"].asInt(), 640);
    ::kill(server, SIGCONT);
    EXPECT_TRUE(waitUntil([&] { return info(33)["width"].asInt() == 640; })) << "it answers again";
}

TEST_F(HostileUser, StoppedToolIsEndedAndTheServiceGoesOn) {
    auto config = testConfig();
    config["xrandr:path"] = alice.script("xrandr", "kill -STOP $$");
    config["hash:path"] = alice.script("hash", "kill -STOP $PPID; kill -KILL $$");
    start(config);
    ASSERT_EQ(bus.login("alice", 640, 480), 33);
    EXPECT_EQ(bus.login("alice", 800, 600), 33) << "after the tool's time";
    EXPECT_TRUE(journal.waitFor("waitSessionGeometryUpdate: child did not end, killed, pid: "));
    EXPECT_TRUE(bus.call("vardStatus").ok());
}

TEST_F(HostileUser, DyingInTheMiddleOfTheStartLeavesNothing) {
    auto config = testConfig();
    config["xrandr:path"] = alice.script("xrandr", "kill -KILL -1"); // every process of the user's, the X server too
    start(config);
    for (int i = 0; i < 3; ++i) {
        bus.login("alice", 800, 600); // whatever it answers
        EXPECT_TRUE(waitUntil([&] {
            bus.login("alice", 640, 481);
            return bus.call("vardStatus").ok();
        }));
    }
    bus.call("vardSessionShutdown", "u", 33U);
    EXPECT_TRUE(waitUntil([&] { return bus.session(33) == "{}"; }));
    expectNothingLeft();
}

} // namespace
