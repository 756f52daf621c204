// What the watchers find and whom they end, with real children and times given by hand.
#include "session_watch.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <limits>
#include <thread>
#include <utility>

namespace {

using namespace std::chrono_literals;
using namespace Vard;

using SystemTime = std::chrono::system_clock::time_point;
using SteadyTime = std::chrono::steady_clock::time_point;

/// A child that waits to be told to end, and is reaped with the object.
class Child {
public:
    Child() : pid_(::fork()) {
        if (pid_ == 0) {
            ::signal(SIGTERM, SIG_DFL);
            for (;;) {
                ::pause();
            }
        }
    }
    ~Child() { end(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    [[nodiscard]] ProcessHandle handle() const { return ProcessHandle::of(pid_); }
    [[nodiscard]] pid_t pid() const { return pid_; }
    void end() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
    }
    /// For a child that somebody else reaps.
    pid_t release() { return std::exchange(pid_, -1); }

private:
    pid_t pid_;
};

class SessionWatch : public testing::Test {
protected:
    SessionWatch() { table_.setRange({33, 4}); }

    std::shared_ptr<Session> put(size_t slot, const ProcessHandle& server) {
        const std::scoped_lock lock(table_.mutex());
        auto session = std::make_shared<Session>(tasks_);
        session->display = session->sid = table_.displayLocked(slot);
        session->pid1 = server;
        session->start = start_;
        session->remoteaddr = "10.1.2." + std::to_string(slot);
        table_.slotsLocked()[slot] = session;
        return session;
    }
    static bool told(const std::shared_ptr<Session>& session) { return session->pid1.toldToEndFor().has_value(); }
    std::vector<SessionEvent> endedWithin(std::chrono::seconds limit) {
        const auto end = std::chrono::steady_clock::now() + limit;
        auto events = takeEndedSessions(table_, children_);
        while (events.empty() && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(5ms);
            events = takeEndedSessions(table_, children_);
        }
        return events;
    }

    BackgroundTasks tasks_;
    SessionTable table_;
    ChildWaits children_;
    SystemTime start_{std::chrono::seconds(1'000'000)};
};

TEST_F(SessionWatch, DurationLimitIsExceededNotReached) {
    const std::array<Child, 3> servers;
    const auto limited = put(0, servers[0].handle());
    limited->durationLimit = 10;
    const auto unlimited = put(1, servers[1].handle());
    const auto young = put(2, servers[2].handle());
    young->durationLimit = 4'000'000'000;
    const auto serverless = put(3, {});
    serverless->durationLimit = 1;
    endSessionsOverLimit(table_, [&] { return start_ + 10999ms; });
    EXPECT_FALSE(told(limited));
    endSessionsOverLimit(table_, [&] { return start_ + 11s; });
    EXPECT_TRUE(told(limited));
    EXPECT_FALSE(told(unlimited));
    EXPECT_FALSE(told(young));
}

TEST_F(SessionWatch, SeamlessSessionIsIdleOnlyWithoutItsClient) {
    const std::array<Child, 4> servers;
    const Child transport;
    const SteadyTime left(1000s);
    const auto idle = put(0, servers[0].handle());
    const auto desktop = put(1, servers[1].handle());
    const auto connected = put(2, servers[2].handle());
    const auto neverConnected = put(3, servers[3].handle());
    idle->transportEndedAt = desktop->transportEndedAt = connected->transportEndedAt = left;
    idle->seamless = connected->seamless = neverConnected->seamless = true;
    connected->pid3 = transport.handle();
    endIdleSeamlessSessions(table_, 60s, left + 60999ms);
    EXPECT_FALSE(told(idle));
    endIdleSeamlessSessions(table_, 60s, left + 61s);
    EXPECT_TRUE(told(idle));
    EXPECT_FALSE(idle->seamless) << "it would be told again and again";
    EXPECT_FALSE(told(desktop) || told(connected) || told(neverConnected));
    endIdleSeamlessSessions(table_, -1s, left);
    EXPECT_FALSE(told(connected) || told(neverConnected));
}

TEST_F(SessionWatch, LostTransportsAreLetGoOnce) {
    const Child server;
    Child transport;
    const auto seamless = put(0, server.handle());
    seamless->seamless = true;
    const auto desktop = put(2, server.handle());
    desktop->pid3 = ProcessHandle::reported(transport.pid());
    EXPECT_TRUE(takeLostTransports(table_).empty());
    transport.end();
    seamless->pid3 = ProcessHandle::reported(std::numeric_limits<pid_t>::max()); // nobody has that number
    const auto lost = takeLostTransports(table_);
    ASSERT_EQ(lost.size(), 2U);
    EXPECT_EQ(lost[1].session, desktop);
    EXPECT_EQ(lost[1].address, "10.1.2.2");
    EXPECT_FALSE(desktop->pid3 || seamless->pid3);
    EXPECT_NE(seamless->transportEndedAt, SteadyTime{});
    EXPECT_EQ(desktop->transportEndedAt, SteadyTime{});
    EXPECT_TRUE(takeLostTransports(table_).empty());
}

TEST_F(SessionWatch, SessionEndsWithItsServerOrItsProgram) {
    std::array<Child, 4> processes;
    std::vector<ProcessHandle> handles;
    for (auto& process : processes) {
        ChildWait child(tasks_, process.release());
        handles.push_back(child.process());
        children_.add(std::move(child));
    }
    const auto byServer = put(0, handles[0]);
    const auto byProgram = put(1, handles[1]);
    byProgram->pid2 = handles[2];
    EXPECT_TRUE(takeEndedSessions(table_, children_).empty());
    handles[3].kill(); // a child of no session
    handles[2].kill();
    auto events = endedWithin(30s);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].session, byProgram);
    EXPECT_EQ(events[0].address, "10.1.2.1");
    EXPECT_TRUE(byProgram->pid1 && !byProgram->pid2 && byProgram->ended);
    EXPECT_EQ(table_.findSession(34), nullptr);
    handles[0].kill();
    events = endedWithin(30s);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].session, byServer);
    children_.endAll("test");
}

} // namespace
