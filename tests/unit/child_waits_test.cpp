// Children waited for: what is known of their end, and when.
#include "child_waits.h"

#include "scratch.h"

namespace {

using namespace Vard;
using namespace std::chrono_literals;
using Scratch::startSleep;

TEST(ChildWaits, WhatFollowsAnEndIsDoneAndLetGoBeforeTheEndIsKnown) {
    BackgroundTasks tasks;
    std::promise<void> begun;
    std::promise<void> allowed;
    auto held = std::make_shared<int>();
    const std::weak_ptr<int> watched = held;
    ChildWait child(tasks, startSleep("0"), [&, held = std::move(held)] {
        begun.set_value();
        allowed.get_future().wait();
    });
    begun.get_future().wait();
    EXPECT_FALSE(child.process().exists()) << "it has been reaped";
    EXPECT_FALSE(child.ready({}));
    allowed.set_value();
    ASSERT_TRUE(child.ready(std::chrono::steady_clock::now() + 30s));
    EXPECT_TRUE(watched.expired()) << "held until somebody takes the status";
}

} // namespace
