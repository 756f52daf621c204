// The bus loop ends when it is told to, whenever that is, and never spins.
#include "dispatcher.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <thread>

namespace {

using namespace std::chrono_literals;
using Vard::ServiceDispatcher;

TEST(Dispatcher, StrayBytesInThePipeDoNotKeepACoreBusyNorDelayTheEnd) {
    ServiceDispatcher dispatcher;
    for (int i = 0; i < 100000; ++i) {
        dispatcher.wake(); // never blocks, though nobody reads yet
    }
    std::jthread other([&] {
        std::this_thread::sleep_for(500ms);
        dispatcher.leave();
    });
    const auto start = std::chrono::steady_clock::now();
    const auto before = std::clock(); // processor time of all threads
    dispatcher.enter();
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 4);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 8s) << "the library's own poll would go on for ten seconds";
}

} // namespace
