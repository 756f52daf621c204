// The bus loop ends when it is told to, whenever that is, and never spins.
#include "dispatcher.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace {

using namespace std::chrono_literals;
using Vard::ServiceDispatcher;

std::chrono::microseconds processorTime() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

TEST(Dispatcher, LeavingBeforeEnteringIsRemembered) {
    ServiceDispatcher dispatcher;
    dispatcher.leave();
    dispatcher.leave();
    dispatcher.enter(); // would wait for ever
    dispatcher.enter();
}

TEST(Dispatcher, LeavingFromAnotherThreadEndsAWaitingLoopAtOnce) {
    ServiceDispatcher dispatcher;
    const auto start = std::chrono::steady_clock::now();
    std::jthread other([&] {
        std::this_thread::sleep_for(50ms);
        dispatcher.leave();
    });
    dispatcher.enter();
    // The library's own poll would go on for ten seconds.
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

TEST(Dispatcher, StrayBytesInThePipeDoNotKeepACoreBusy) {
    ServiceDispatcher dispatcher;
    for (int i = 0; i < 100000; ++i) {
        dispatcher.wake(); // never blocks, though nobody reads yet
    }
    std::jthread other([&] {
        std::this_thread::sleep_for(500ms);
        dispatcher.leave();
    });
    const auto before = processorTime();
    dispatcher.enter();
    EXPECT_LT(processorTime() - before, 250ms);
}

TEST(Dispatcher, PipeIsNotInheritedByPrograms) {
    const ServiceDispatcher dispatcher;
    for (const int fd : dispatcher._fdunlock) {
        EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    }
}

TEST(Dispatcher, StopDuringTheStartIsNotForgotten) {
    Vard::requestStop();
    EXPECT_TRUE(Vard::stopRequested);
    EXPECT_FALSE(Vard::serviceRunning);
}

} // namespace
