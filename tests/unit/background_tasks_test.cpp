// Background tasks: they are waited for, their sleeps end with the service, and their faults stay inside.
#include "background_tasks.h"

#include <gtest/gtest.h>

#include <atomic>

namespace {

using namespace std::chrono_literals;

TEST(BackgroundTasks, SleepsEndWithTheServiceAndFaultsStayInside) {
    Vard::BackgroundTasks tasks;
    std::atomic<bool> woken = false;
    EXPECT_TRUE(tasks.run("test", [&] {
        EXPECT_FALSE(tasks.sleep(1h));
        woken = true;
    }));
    EXPECT_TRUE(tasks.run("test", [] { throw 42; }));
    EXPECT_FALSE(tasks.drain(20ms));
    tasks.stop();
    EXPECT_TRUE(tasks.drain(20s));
    EXPECT_TRUE(woken);
}

} // namespace
