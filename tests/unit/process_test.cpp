// Children that are the user through and through.
#include "process.h"

#include "child_waits.h"
#include "exceptions.h"
#include "scratch.h"

namespace {

using namespace Vard;

using Processes = Scratch::Machine;

TEST_F(Processes, ChildrenAreTheUserWithTheLastOfEachVariable) {
    const Scratch::Directory dir;
    Scratch::run("chmod 777 " + dir.path().string());
    const std::string log = dir.path() / "log";
    EXPECT_EQ(waitProcessPid(Utils::runChildProcess("/usr/bin/env", {}, "daemon",
                                                    {"A=first", "HOME=/elsewhere", "A=last"}, {log})),
              0);
    EXPECT_EQ(Scratch::run("stat -c %U " + log + "; grep -E '^(A|HOME)=' " + log + " | sort"),
              "daemon\nA=last\nHOME=/elsewhere\n");
    EXPECT_NE(waitProcessPid(Utils::runChildProcess(log, {}, "daemon", {})), 0) << "not executable";
    EXPECT_THROW(Utils::runChildProcess("/bin/true", {}, "", {}), vard_error) << "nobody is not root";
    EXPECT_THROW(Utils::runChildProcess("/bin/true", {}, "nobody-knows", {}), vard_error);
}

} // namespace
