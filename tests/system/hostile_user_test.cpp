// What a user can do to the service with files, processes and a home directory of his own: nothing.
#include "service.h"

#include <gmock/gmock.h>

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

// Every process of the user's, the X server too: before it has a socket, while its size is set, and in use.
TEST_F(HostileUser, DyingInTheMiddleOfTheStartLeavesNothing) {
    start(testConfig({{"xrandr:path", alice.script("xrandr", "echo resize >>~/killed; kill -KILL -1")},
                      {"xvfb:path", alice.script("server",
                                                 "if [ -e ~/early ]; then echo early >>~/killed; "
                                                 "kill -KILL -1; exit; fi; exec Xvfb $1 $2 $3 640x480x24 ${@:5}")}}));
    for (const std::string moment : {"early", "resize"}) {
        mustRun(moment == "early" ? "touch /home/alice/early" : "rm /home/alice/early");
        for (int i = 0; i < 3; ++i) {
            mustRun("rm -f /home/alice/killed");
            const auto sid = bus.login("alice", 800, 600);
            EXPECT_TRUE(moment == "resize" || sid == -1);
            EXPECT_THAT(readFile("/home/alice/killed"), testing::StartsWith(moment)) << "not by this start";
            EXPECT_TRUE(sid < 0 || waitUntil([&] { return bus.session(static_cast<uint32_t>(sid)) == "{}"; }));
        }
    }
    EXPECT_EQ(journal.count("startSession: session found"), 0U) << "none was in use again";
    expectNothingLeft();
}

} // namespace
