// Processes: handles that never reach a stranger, children that are the user through and through, waits that end.
#include "process.h"
#include "child_waits.h"
#include "exceptions.h"
#include "scratch.h"
#include "user_database.h"

#include <pthread.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <thread>

namespace {

using namespace Vard;
using namespace std::chrono_literals;

pid_t startSleep(const char* time = "1000") {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::execlp("sleep", "sleep", time, nullptr);
        ::_exit(127);
    }
    return pid;
}

class Processes : public Scratch::Machine {};

TEST_F(Processes, HandlesHoldNoGroupsAndOutliveTheNumber) {
    for (const pid_t pid : {0, -1, -1000}) {
        EXPECT_FALSE(ProcessHandle::of(pid));
    }
    const auto sleeping = ProcessHandle::of(startSleep());
    ASSERT_TRUE(sleeping);
    EXPECT_TRUE(sleeping.exists());
    EXPECT_FALSE(sleeping.toldToEndFor());
    EXPECT_TRUE(sleeping.terminate());
    EXPECT_TRUE(sleeping.toldToEndFor());
    ::waitpid(sleeping.pid(), nullptr, 0);
    EXPECT_FALSE(sleeping.exists());
    EXPECT_FALSE(sleeping.kill());
    EXPECT_FALSE(ProcessHandle::of(sleeping.pid()));
}

TEST_F(Processes, UnknownOrEmptyUsersAndMissingProgramsStartNothing) {
    EXPECT_THROW(Utils::runChildProcess("/bin/true", {}, "", {}), vard_error);
    EXPECT_THROW(Utils::runChildProcess("/bin/true", {}, "nobody-knows", {}), vard_error);
    EXPECT_THROW(Utils::runChildProcess("/bin/no-such", {}, "daemon", {}), vard_error);
    EXPECT_EQ(Utils::getUserInfo("nobody-knows").uid, unknownUid);
    EXPECT_EQ(Utils::getUserInfo("../root").uid, unknownUid);
    EXPECT_TRUE(Identity::of("root").groups.empty());
}

TEST_F(Processes, ChildrenHaveNothingButWhatTheyAreGiven) {
    const Scratch::Directory scratch;
    Scratch::run("chmod 777 " + scratch.path().string());
    const auto log = scratch.path() / "log";
    const pid_t pid = Utils::runChildProcess("/bin/sh", {"-c", "id -un; env; ls /proc/self/fd | wc -l"}, "daemon",
                                             {"A=first", "HOME=/elsewhere", "A=last"}, log);
    EXPECT_EQ(waitProcessPid(pid), 0);
    const std::string text = Scratch::run("cat " + log.string());
    EXPECT_EQ(text.substr(0, 7), "daemon\n");
    EXPECT_NE(text.find("\nA=last\n"), std::string::npos);
    EXPECT_EQ(text.find("first"), std::string::npos);
    EXPECT_NE(text.find("\nHOME=/elsewhere\n"), std::string::npos);
    EXPECT_EQ(text.find("VARD_SANDBOX"), std::string::npos);
    EXPECT_NE(text.find("\n4\n"), std::string::npos) << "the three streams and the listing's own: " << text;
    EXPECT_EQ(waitProcessPid(Utils::runChildProcess(log, {}, "daemon", {})), 1 << 8) << "not executable: /bin/false";
}

TEST_F(Processes, FirstLinesAreReadFromRegularFilesOnly) {
    const Scratch::Directory scratch;
    const auto file = scratch.write("file", "first\nsecond\n");
    EXPECT_EQ(Utils::readFirstLine(file), "first");
    std::filesystem::create_symlink(file, scratch.path() / "link");
    EXPECT_EQ(Utils::readFirstLine(scratch.path() / "link"), "");
    Scratch::run("mkfifo " + (scratch.path() / "fifo").string());
    EXPECT_EQ(Utils::readFirstLine(scratch.path() / "fifo"), "");
    EXPECT_EQ(Utils::readFirstLine(scratch.write("big", std::string(1 << 20, 'x'))).size(), size_t{64} << 10);
}

// Another thread inside the user database at the moment of a fork must not leave its locks to the child.
TEST_F(Processes, ForksWhileOthersLookUsersUpNeverHang) {
    std::atomic<bool> stop{false};
    std::jthread other([&] {
        while (!stop) {
            Utils::getUserGroups("daemon", 1);
            Utils::getUserInfo("root");
        }
    });
    for (int i = 0; i < 300; ++i) {
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::alarm(20);
            ::_exit(Utils::getUserInfo("daemon").known() ? 0 : 1);
        }
        ASSERT_EQ(waitProcessPid(pid), 0) << "child " << i;
    }
    stop = true;
}

TEST_F(Processes, CollectingTakesOneLookForHundredsOfChildren) {
    BackgroundTasks tasks;
    ChildWaits waits;
    for (int i = 0; i < 100; ++i) {
        waits.add(ChildWait(tasks, startSleep()));
    }
    const pid_t quick = startSleep("0");
    waits.add(ChildWait(tasks, quick));
    std::vector<pid_t> ended;
    int passes = 0;
    std::chrono::steady_clock::duration longest{};
    while (ended.empty()) {
        const auto begin = std::chrono::steady_clock::now();
        const std::scoped_lock lock(waits.mutex());
        waits.collectLocked("test", [&](const ProcessHandle& process, int status) {
            EXPECT_EQ(status, 0);
            ended.push_back(process.pid());
        });
        longest = std::max(longest, std::chrono::steady_clock::now() - begin);
        ++passes;
    }
    EXPECT_EQ(ended, std::vector<pid_t>{quick});
    EXPECT_LT(longest, 90ms) << "a millisecond for each child would take a hundred";
    waits.endAll("test");
    EXPECT_TRUE(tasks.drain(10s));
}

TEST_F(Processes, ChildrenAreWaitedForWithoutThreads) {
    BackgroundTasks tasks;
    pthread_attr_t before;
    pthread_attr_t impossible;
    ::pthread_getattr_default_np(&before);
    ::pthread_attr_init(&impossible);
    ::pthread_attr_setstacksize(&impossible, size_t{1} << 46); // no thread gets a stack of that size
    ASSERT_EQ(::pthread_setattr_default_np(&impossible), 0);
    EXPECT_FALSE(tasks.run("test", [] {}));
    ChildWait child(tasks, startSleep("0"));
    ::pthread_setattr_default_np(&before);
    EXPECT_EQ(child.getWithin(20s, "test"), 0);
    EXPECT_FALSE(child.valid());
}

TEST_F(Processes, WhoDoesNotEndIsKilled) {
    BackgroundTasks tasks;
    const pid_t pid = startSleep();
    ::kill(pid, SIGSTOP);
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, WUNTRACED), pid); // stopped, so that it does not see what it is told
    ChildWait child(tasks, pid);
    child.process().terminate();
    EXPECT_FALSE(child.ready({}));
    EXPECT_EQ(child.getWithin(50ms, "test"), SIGKILL);
}

TEST(BackgroundTasks, SleepsEndWithTheServiceAndFaultsStayInside) {
    BackgroundTasks tasks;
    std::atomic<int> woken{0};
    EXPECT_TRUE(tasks.run("test", [&] {
        EXPECT_FALSE(tasks.sleep(1h));
        ++woken;
    }));
    EXPECT_TRUE(tasks.run("test", [] { throw 42; }));
    EXPECT_FALSE(tasks.drain(20ms));
    tasks.stop();
    EXPECT_TRUE(tasks.drain(20s));
    EXPECT_EQ(woken, 1);
}

} // namespace
