// What the watchers find and whom they end, with times given by hand.
#include "session_watch.h"

#include "scratch.h"
#include "session_limits.h"

#include <limits>

namespace {

using namespace std::chrono_literals;
using namespace Vard;

using SteadyTime = std::chrono::steady_clock::time_point;

/// A process that has gone: nobody has that number. It remembers all the same that it was told to end.
ProcessHandle gone() { return ProcessHandle::reported(std::numeric_limits<pid_t>::max()); }

class SessionWatch : public testing::Test {
protected:
    SessionWatch() { table_.setRange({33, 4}); }

    std::shared_ptr<Session> put(uint32_t slot, const ProcessHandle& server = gone()) {
        auto session = std::make_shared<Session>(tasks_, userChildren_);
        session->sid = session->display = 33 + slot;
        session->start = start_;
        auto sessions = table_.lock();
        sessions.state(*session).pid1 = server;
        sessions.state(*session).remoteaddr = "10.1.2." + std::to_string(slot);
        sessions.put(session);
        return session;
    }
    /// What may change in a session; no other thread looks at these.
    SessionState& state(const std::shared_ptr<Session>& session) { return table_.lock().state(*session); }
    bool told(const std::shared_ptr<Session>& session) { return state(session).pid1.toldToEndFor().has_value(); }
    // Each look takes a millisecond; a hang is the test's time-out.
    std::vector<SessionEvent> nextEnded() {
        for (;;) {
            if (auto events = takeEndedSessions(table_, children_, userChildren_); !events.empty()) {
                return events;
            }
        }
    }

    UserChildren userChildren_;
    BackgroundTasks tasks_;
    SessionTable table_;
    ChildWaits children_;
    const std::chrono::system_clock::time_point start_{1'000'000s};
};

TEST_F(SessionWatch, DurationLimitIsExceededNotReached) {
    const auto limited = put(0);
    state(limited).durationLimit = 10;
    const auto unlimited = put(1);
    const auto young = put(2);
    state(young).durationLimit = 4'000'000'000;
    endSessionsOverLimit(table_, [&] { return start_ + 10999ms; });
    EXPECT_FALSE(told(limited));
    endSessionsOverLimit(table_, [&] { return start_ + 11s; });
    EXPECT_TRUE(told(limited));
    EXPECT_FALSE(told(unlimited) || told(young));
}

TEST_F(SessionWatch, SeamlessSessionIsIdleOnlyWithoutItsClient) {
    const SteadyTime left(1000s);
    const auto idle = put(0);
    const auto desktop = put(1);
    const auto connected = put(2);
    const auto neverConnected = put(3);
    state(idle).transportEndedAt = state(desktop).transportEndedAt = state(connected).transportEndedAt = left;
    state(idle).seamless = state(connected).seamless = state(neverConnected).seamless = true;
    state(connected).pid3 = gone();
    endIdleSeamlessSessions(table_, 60s, left + 60999ms);
    EXPECT_FALSE(told(idle));
    endIdleSeamlessSessions(table_, 60s, left + 61s);
    EXPECT_TRUE(told(idle));
    EXPECT_FALSE(state(idle).seamless) << "it would be told again and again";
    EXPECT_FALSE(told(desktop) || told(connected) || told(neverConnected));
}

TEST_F(SessionWatch, LostTransportsAreLetGoOnce) {
    const auto seamless = put(0);
    state(seamless).seamless = true;
    const auto connected = put(1);
    const auto desktop = put(2);
    state(seamless).pid3 = state(desktop).pid3 = gone();
    state(connected).pid3 = ProcessHandle::of(Scratch::startSleep());
    const auto lost = takeLostTransports(table_);
    ASSERT_EQ(lost.size(), 2U);
    EXPECT_EQ(lost[1].session, desktop);
    EXPECT_EQ(lost[1].address, "10.1.2.2");
    EXPECT_FALSE(state(desktop).pid3 || state(seamless).pid3);
    EXPECT_NE(state(seamless).transportEndedAt, SteadyTime{});
    EXPECT_EQ(state(desktop).transportEndedAt, SteadyTime{});
    EXPECT_TRUE(takeLostTransports(table_).empty());
}

TEST_F(SessionWatch, SessionEndsWithItsServerOrItsProgram) {
    std::vector<ProcessHandle> processes;
    for (int i = 0; i < 3; ++i) {
        ChildWait child(tasks_, Scratch::startSleep());
        processes.push_back(child.process());
        children_.add(std::move(child));
    }
    const auto byServer = put(0, processes[0]);
    const auto byProgram = put(1);
    state(byProgram).pid2 = processes[1];
    processes[2].kill(); // a child of no session
    processes[1].kill();
    const auto events = nextEnded();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].session, byProgram);
    EXPECT_EQ(events[0].address, "10.1.2.1");
    EXPECT_TRUE(state(byProgram).pid1 && !state(byProgram).pid2 && byProgram->ended);
    EXPECT_EQ(table_.findSession(34), nullptr);
    processes[0].kill();
    EXPECT_EQ(nextEnded()[0].session, byServer);
    children_.endAll("test");
}

} // namespace
