// Children waited for: what is known of their end and when, with and without threads.
#include "child_waits.h"

#include "scratch.h"

#include <pthread.h>

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

TEST(ChildWaits, ChildrenAreWaitedForWithoutThreads) {
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
    EXPECT_TRUE(child.endedBy(std::chrono::steady_clock::now() + 20s));
    EXPECT_EQ(child.get(), 0);
}

TEST(ChildWaits, OnePassTakesOneLookForHundredsOfChildren) {
    BackgroundTasks tasks;
    ChildWaits waits;
    for (int i = 0; i < 100; ++i) {
        waits.add(ChildWait(tasks, startSleep()));
    }
    auto shortest = std::chrono::steady_clock::duration::max();
    for (int pass = 0; pass < 10; ++pass) { // the machine may be busy during some
        const auto begin = std::chrono::steady_clock::now();
        waits.collect("test", [](const ProcessHandle&) {
            ADD_FAILURE() << "none has ended";
            return true;
        });
        shortest = std::min(shortest, std::chrono::steady_clock::now() - begin);
    }
    EXPECT_LT(shortest, 90ms) << "a millisecond for each child would take a hundred";
    waits.endAll("test");
}

} // namespace
