// The table of sessions: its range and its slots.
#include "session_table.h"

#include <gmock/gmock.h>

#include <limits>

namespace {

using Vard::DisplayRange;
using Vard::Session;

class SessionTable : public testing::Test {
protected:
    std::shared_ptr<Session> put(uint32_t display) {
        auto session = std::make_shared<Session>(tasks_, userChildren_);
        session->display = session->sid = display;
        table_.lock().put(session);
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
    const auto session = put(36);
    table_.setRange({35, 2});
    EXPECT_EQ(table_.findSession(36), session);
    EXPECT_THAT(table_.lock().freeDisplays(), testing::ElementsAre(35, 37)) << "36 is a session's, in another slot";
    table_.setRange({Vard::lastDisplay, 6});
    EXPECT_EQ(table_.lock().size(), 6U);
    EXPECT_THAT(table_.lock().freeDisplays(), testing::ElementsAre(Vard::lastDisplay));
}

} // namespace
