// The table of display slots: its range, its lookups, and when a display may be handed out again.
#include "session_table.h"

#include <gtest/gtest.h>

namespace {

using Vard::DisplayRange;
using Vard::Session;
using Vard::SessionTable;

class SessionTableTest : public testing::Test {
protected:
    std::shared_ptr<Session> put(size_t slot, const std::string& user, bool seamless = false) {
        const std::scoped_lock lock(table_.mutex());
        auto session = std::make_shared<Session>(tasks_);
        session->display = session->sid = table_.displayLocked(slot);
        session->username = user;
        session->seamless = seamless;
        table_.slotsLocked()[slot] = session;
        return session;
    }
    size_t size() {
        const std::scoped_lock lock(table_.mutex());
        return table_.slotsLocked().size();
    }

    Vard::BackgroundTasks tasks_;
    SessionTable table_;
};

TEST(DisplayRange, TakesAbsoluteValuesInAnyOrderAndRefusesImpossibleDisplays) {
    const auto defaults = DisplayRange::of(33, 55, "test");
    ASSERT_TRUE(defaults);
    EXPECT_EQ(defaults->first, 33);
    EXPECT_EQ(defaults->count, 22U);
    const auto swapped = DisplayRange::of(-60, 40, "test");
    ASSERT_TRUE(swapped);
    EXPECT_EQ(swapped->first, 40);
    EXPECT_EQ(swapped->count, 20U);
    EXPECT_EQ(DisplayRange::of(7, 7, "test")->count, 0U);
    EXPECT_FALSE(DisplayRange::of(0, 70000, "test"));
    EXPECT_FALSE(DisplayRange::of(std::numeric_limits<int>::min(), 5, "test"));
}

TEST_F(SessionTableTest, GrowsButNeverShrinksUnderRunningSessions) {
    table_.setRange({33, 4});
    const auto session = put(3, "alice");
    table_.setRange({40, 2});
    EXPECT_EQ(size(), 4U);
    EXPECT_EQ(table_.findSession(36), session);
    table_.setRange({40, 6});
    EXPECT_EQ(size(), 6U);
    const std::scoped_lock lock(table_.mutex());
    EXPECT_EQ(table_.displayLocked(0), 40U);
}

TEST_F(SessionTableTest, FindsTheDesktopOfAUserButNotItsApplications) {
    table_.setRange({33, 4});
    put(0, "alice", true);
    EXPECT_EQ(table_.findUserSession("alice"), nullptr);
    const auto desktop = put(3, "alice");
    put(1, "Alice");
    EXPECT_EQ(table_.findUserSession("alice"), desktop);
    EXPECT_EQ(table_.findSession(36), desktop);
    EXPECT_EQ(table_.findSession(35), nullptr);
}

TEST_F(SessionTableTest, DisplayIsFreeOnlyWhenItsRecordHasGoneEntirely) {
    table_.setRange({33, 2});
    auto holder = std::make_shared<Session>(tasks_);
    holder->displayLease = table_.leaseLocked(33);
    ASSERT_TRUE(holder->displayLease);
    EXPECT_FALSE(table_.leaseLocked(33));
    EXPECT_TRUE(table_.leaseLocked(34));
    table_.setRange({32, 2}); // the same display, now in another slot
    EXPECT_FALSE(table_.leaseLocked(33));
    holder.reset();
    EXPECT_TRUE(table_.leaseLocked(33));
}

TEST_F(SessionTableTest, ClearingEmptiesTheTableAndTellsWhoStillHoldsARecord) {
    table_.setRange({33, 2});
    const auto held = put(0, "alice");
    table_.clear();
    EXPECT_EQ(size(), 0U);
    EXPECT_TRUE(held->ended);
    EXPECT_EQ(table_.findSession(33), nullptr);
}

} // namespace
