// Whom the limits end, with times given by hand.
#include "session_limits.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace std::chrono_literals;
using namespace Vard;

using SteadyTime = std::chrono::steady_clock::time_point;

/// A process that has gone: nobody has that number. It remembers all the same that it was told to end.
ProcessHandle gone() { return ProcessHandle::reported(std::numeric_limits<pid_t>::max()); }

class SessionLimits : public testing::Test {
protected:
    SessionLimits() { table_.setRange({33, 4}); }

    std::shared_ptr<Session> put(uint32_t slot) {
        auto session = std::make_shared<Session>(tasks_, userChildren_);
        session->sid = session->display = 33 + slot;
        session->start = start_;
        auto sessions = table_.lock();
        sessions.state(*session).pid1 = gone();
        sessions.put(session);
        return session;
    }
    /// What may change in a session; no other thread looks at these.
    SessionState& state(const std::shared_ptr<Session>& session) { return table_.lock().state(*session); }
    bool told(const std::shared_ptr<Session>& session) { return state(session).pid1.toldToEndFor().has_value(); }

    UserChildren userChildren_;
    BackgroundTasks tasks_;
    SessionTable table_;
    const std::chrono::system_clock::time_point start_{1'000'000s};
};

TEST_F(SessionLimits, DurationLimitIsExceededNotReached) {
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

TEST_F(SessionLimits, SeamlessSessionIsIdleOnlyWithoutItsClient) {
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

} // namespace
