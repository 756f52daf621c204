// How long the children of each user may take, with times given by hand.
#include "user_children.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using Vard::Patience;

constexpr Patience::Clock::time_point now(1000s);

TEST(Patience, WhoHadAChildKilledHasHalfASecondTogetherForAMinuteOrUntilThatOneEndsInTime) {
    Patience patience(250ms);
    EXPECT_EQ(patience.left(1, now), 5s);
    patience.took(1, "hanging", 5s, true, now);
    EXPECT_EQ(patience.left(1, now), 500ms);
    EXPECT_EQ(patience.left(2, now), 5s) << "somebody else";
    patience.took(1, "another", 10ms, false, now);
    patience.took(1, "hanging", 300ms, true, now + 1s);
    EXPECT_EQ(patience.left(1, now + 1s), 200ms);
    patience.took(1, "hanging", 300ms, true, now + 2s);
    EXPECT_EQ(patience.left(1, now + 61s), 0ms);
    EXPECT_EQ(patience.left(1, now + 62s), 5s);
    patience.took(1, "hanging", 5s, true, now + 70s);
    patience.took(1, "hanging", 10ms, false, now + 71s);
    EXPECT_EQ(patience.left(1, now + 71s), 5s);
}

TEST(Patience, WhoIsSlowButEndsHasTheUsualTimeTogetherInAMinute) {
    Patience patience(250ms);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(patience.left(1, now), 5s - i * 1750ms);
        patience.took(1, "slow", 2s, false, now);
        patience.took(1, "quick", 200ms, false, now);
    }
    patience.took(1, "slow", 2s, false, now + 10s);
    EXPECT_EQ(patience.left(1, now + 10s), 500ms);
    EXPECT_EQ(patience.left(1, now + 70s), 5s);
}

} // namespace
