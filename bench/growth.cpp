// How the cost of what runs all the time grows with the number of sessions.
#include "growth.h"

#include "bus_rows.h"
#include "session_watch.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <functional>

namespace {

using namespace Vard;
using Clock = std::chrono::steady_clock;

double medianMicroseconds(const std::function<void()>& work) {
    std::vector<double> times;
    for (int i = 0; i < 51; ++i) {
        const auto begin = Clock::now();
        work();
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
    }
    std::ranges::sort(times);
    return times[times.size() / 2];
}

ProcessHandle startChild(BackgroundTasks& tasks, ChildWaits& children) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::signal(SIGTERM, SIG_DFL);
        for (;;) {
            ::pause();
        }
    }
    ChildWait child(tasks, pid);
    ProcessHandle handle = child.process();
    children.add(std::move(child));
    return handle;
}

void fill(SessionTable& table, ChildWaits& children, BackgroundTasks& tasks, UserChildren& users, size_t count) {
    table.setRange({33, count});
    for (uint32_t slot = 0; slot < count; ++slot) {
        auto session = std::make_shared<Session>(tasks, users);
        session->display = session->sid = 33 + slot;
        session->username = "user" + std::to_string(slot);
        session->start = std::chrono::system_clock::now();
        const auto server = startChild(tasks, children);
        const auto supervisor = startChild(tasks, children);
        auto sessions = table.lock();
        sessions.state(*session).pid1 = server;
        sessions.state(*session).pid2 = supervisor;
        sessions.put(session);
    }
}

void measure(size_t count) {
    UserChildren users;
    BackgroundTasks tasks;
    ChildWaits children;
    SessionTable table;
    fill(table, children, tasks, users, count);
    const double pass = medianMicroseconds([&] { takeEndedSessions(table, children, users); });
    const double info = medianMicroseconds([&] {
        DBus::SignalMessage message("/ru/korvex/vard", "ru.korvex.vard", "bench");
        DBus::MessageIter out = message.writer();
        out << busRows(sessionRows(table));
    });
    // Each pass waits until a millisecond after its beginning, however many children there are.
    std::printf(
        "%5zu sessions  stopped-children pass %7.0f us (%.2f us per session beyond the millisecond waited), "
        "busSessionsInfo %6.0f us (%.2f us per session)\n",
        count, pass, std::max(pass - 1000, 0.0) / static_cast<double>(count), info, info / static_cast<double>(count));
    table.clear();
    children.endAll("bench");
}

} // namespace

void tableGrowth() {
    for (const auto count : {size_t{22}, size_t{200}, size_t{1000}}) {
        measure(count);
    }
}
