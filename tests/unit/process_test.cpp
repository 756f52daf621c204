// Processes: handles that never reach a stranger, children that are the user through and through.
#include "process.h"

#include "child_waits.h"
#include "exceptions.h"
#include "scratch.h"
#include "user_database.h"

#include <sys/prctl.h>
#include <sys/resource.h>

#include <csignal>
#include <fstream>
#include <thread>

namespace {

using namespace Vard;

class Processes : public Scratch::Machine {
protected:
    Scratch::Directory dir_;
};

TEST_F(Processes, HandlesHoldNoGroupsAndOutliveTheNumber) {
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

TEST_F(Processes, NameTellsNothingOfTheOwnerOrTheState) {
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
TEST_F(Processes, ReportedWithoutADescriptorIsHeldByItsNumberUntilAStrangerHasIt) {
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

TEST_F(Processes, ChildrenAreTheUserWithTheLastOfEachVariable) {
    Scratch::run("chmod 777 " + dir_.path().string());
    const std::string log = dir_.path() / "log";
    EXPECT_EQ(waitProcessPid(Utils::runChildProcess("/usr/bin/env", {}, "daemon",
                                                    {"A=first", "HOME=/elsewhere", "A=last"}, {log})),
              0);
    EXPECT_EQ(Scratch::run("stat -c %U " + log + "; grep -E '^(A|HOME)=' " + log + " | sort"),
              "daemon\nA=last\nHOME=/elsewhere\n");
    EXPECT_NE(waitProcessPid(Utils::runChildProcess(log, {}, "daemon", {})), 0) << "not executable";
    EXPECT_THROW(Utils::runChildProcess("/bin/true", {}, "", {}), vard_error) << "nobody is not root";
    EXPECT_THROW(Utils::runChildProcess("/bin/true", {}, "nobody-knows", {}), vard_error);
}

TEST_F(Processes, SmallFilesAreReadFromRegularFilesOnly) {
    const auto file = dir_.write("file", "first\nsecond\n");
    EXPECT_EQ(Utils::readSmallFile(file), "first\nsecond\n");
    std::filesystem::create_symlink(file, dir_.path() / "link");
    EXPECT_EQ(Utils::readSmallFile(dir_.path() / "link"), "");
    Scratch::run("mkfifo " + (dir_.path() / "fifo").string());
    EXPECT_EQ(Utils::readSmallFile(dir_.path() / "fifo"), "");
    EXPECT_EQ(Utils::readSmallFile(dir_.write("big", std::string(1 << 20, 'x'))).size(), size_t{64} << 10);
}

// Another thread inside the user database at the moment of a fork must not leave its locks to the child.
TEST_F(Processes, ForksWhileOthersLookUsersUpNeverHang) {
    const auto found = [] {
        return Utils::getUserInfo("daemon").known() && !Utils::getUserGroups("daemon", 1).empty();
    };
    std::jthread other([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            found();
        }
    });
    for (int i = 0; i < 300; ++i) {
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::alarm(20);
            ::_exit(found() ? 0 : 1);
        }
        ASSERT_EQ(waitProcessPid(pid), 0) << "child " << i;
    }
}

} // namespace
