// Handles that never reach a stranger.
#include "process_handle.h"

#include "child_waits.h"
#include "scratch.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <thread>

namespace {

using namespace Vard;

using ProcessHandles = Scratch::Machine;

TEST_F(ProcessHandles, HandlesHoldNoGroupsAndOutliveTheNumber) {
    for (const pid_t pid : {0, -1, -1000}) {
        EXPECT_FALSE(ProcessHandle::of(pid));
        EXPECT_FALSE(ProcessHandle::reported(pid));
    }
    const auto sleeping = ProcessHandle::of(Scratch::startSleep());
    EXPECT_TRUE(sleeping.exists());
    EXPECT_TRUE(sleeping.terminate());
    EXPECT_EQ(waitProcessPid(sleeping.pid()), SIGTERM);
    EXPECT_FALSE(sleeping.exists());
    EXPECT_FALSE(sleeping.kill());
}

TEST_F(ProcessHandles, NameTellsNothingOfTheOwnerOrTheState) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::prctl(PR_SET_NAME, "Uid:\t0\n) S");
        ::_exit(::setuid(12345) == 0 ? ::raise(SIGSTOP) : 1);
    }
    int status = 0;
    ::waitpid(pid, &status, WUNTRACED);
    EXPECT_EQ(Utils::processOwner(pid), 12345U);
    const auto child = ProcessHandle::of(pid);
    EXPECT_TRUE(child.stopped());
    child.kill();
    EXPECT_EQ(waitProcessPid(pid), SIGKILL);
}

// A transport that is reported meanwhile would otherwise count as gone, and its client's session as detached.
TEST_F(ProcessHandles, ReportedWithoutADescriptorIsHeldByItsNumberUntilAStrangerHasIt) {
    const pid_t pid = Scratch::startSleep();
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const auto handle = ProcessHandle::reported(pid);
    EXPECT_TRUE(handle.exists());
    EXPECT_FALSE(handle.kill()) << "it might be a stranger by now";
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(handle.exists());
    EXPECT_TRUE(handle.terminate());
    EXPECT_EQ(waitProcessPid(pid), SIGTERM);
    EXPECT_FALSE(handle.exists());
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // the kernel tells beginnings apart by ten
    std::ofstream("/proc/sys/kernel/ns_last_pid") << pid - 1;
    const auto stranger = ProcessHandle::of(Scratch::startSleep());
    ASSERT_EQ(stranger.pid(), pid);
    EXPECT_FALSE(handle.exists() || handle.kill());
    stranger.kill();
    EXPECT_EQ(waitProcessPid(pid), SIGKILL);
}

} // namespace
