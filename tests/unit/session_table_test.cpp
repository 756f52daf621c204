// The table of display slots: its range, its lookups, and when a display may be handed out again.
#include "session_table.h"

#include <gtest/gtest.h>

namespace {

using Vard::DisplayRange;
using Vard::Session;

class SessionTable : public testing::Test {
protected:
    std::shared_ptr<Session> put(size_t slot) {
        const std::scoped_lock lock(table_.mutex());
        auto session = std::make_shared<Session>(tasks_, userChildren_);
        session->sid = table_.displayLocked(slot);
        table_.slotsLocked()[slot] = session;
        return session;
    }

    Vard::UserChildren userChildren_;
    Vard::BackgroundTasks tasks_;
    Vard::SessionTable table_;
};

TEST_F(SessionTable, RangeTakesAbsoluteValuesInAnyOrderUpToTheLastDisplay) {
    const auto range = DisplayRange::of(-60, 40, "test");
    ASSERT_TRUE(range);
    EXPECT_EQ(range->first, 40);
    EXPECT_EQ(range->count, 20U);
    EXPECT_TRUE(DisplayRange::of(59536, 1, "test"));
    EXPECT_FALSE(DisplayRange::of(1, 59537, "test"));
    EXPECT_FALSE(DisplayRange::of(std::numeric_limits<int>::min(), 5, "test"));
}

TEST_F(SessionTable, GrowsButNeverShrinksUnderRunningSessions) {
    table_.setRange({33, 4});
    const auto session = put(3);
    table_.setRange({40, 2});
    EXPECT_EQ(table_.findSession(36), session);
    table_.setRange({40, 6});
    EXPECT_EQ(table_.slotsLocked().size(), 6U);
    EXPECT_EQ(table_.displayLocked(0), 40U);
}

TEST_F(SessionTable, DisplayIsFreeOnlyWhenItsRecordHasGoneEntirely) {
    table_.setRange({33, 2});
    auto holder = std::make_shared<Session>(tasks_, userChildren_);
    holder->displayLease = table_.leaseLocked(33);
    EXPECT_TRUE(table_.leaseLocked(34));
    table_.setRange({32, 2}); // the same display, now in another slot
    EXPECT_FALSE(table_.leaseLocked(33));
    holder.reset();
    EXPECT_TRUE(table_.leaseLocked(33));
}

TEST_F(SessionTable, ClearingTellsWhoStillHoldsARecord) {
    table_.setRange({33, 2});
    const auto held = put(0);
    table_.clear();
    EXPECT_TRUE(held->ended);
}

} // namespace
