// The event loop's sources as owning objects.
#include "events.h"

#include <sys/epoll.h>
#include <sys/wait.h>
#include <systemd/sd-journal.h>

#include <ctime>
#include <system_error>

namespace Doors {

namespace {

EventSource* source(void* self) { return static_cast<EventSource*>(self); }

void check(int result, const char* what) {
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), what);
    }
}

} // namespace

// The copy lives on when the call destroys this object. The loop is written in C: nothing may be thrown through it.
int EventSource::call() {
    try {
        const auto run = run_;
        run();
    } catch (const std::exception& err) {
        sd_journal_print(LOG_ERR, "%s: exception: %s", "event", err.what());
    }
    return 0;
}

std::unique_ptr<EventSource> EventSource::readable(sd_event* loop, int fd, std::function<void()> run) {
    std::unique_ptr<EventSource> made(new EventSource(std::move(run)));
    const auto handler = [](sd_event_source*, int, uint32_t, void* self) { return source(self)->call(); };
    check(sd_event_add_io(loop, &made->source_, fd, EPOLLIN, handler, made.get()), "sd_event_add_io");
    return made;
}

std::unique_ptr<EventSource> EventSource::childEnd(sd_event* loop, pid_t pid, std::function<void()> run) {
    std::unique_ptr<EventSource> made(new EventSource(std::move(run)));
    const auto handler = [](sd_event_source*, const siginfo_t*, void* self) { return source(self)->call(); };
    check(sd_event_add_child(loop, &made->source_, pid, WEXITED, handler, made.get()), "sd_event_add_child");
    return made;
}

std::unique_ptr<EventSource> EventSource::after(sd_event* loop, std::chrono::milliseconds time,
                                                std::function<void()> run) {
    std::unique_ptr<EventSource> made(new EventSource(std::move(run)));
    const auto handler = [](sd_event_source*, uint64_t, void* self) { return source(self)->call(); };
    const auto micro = static_cast<uint64_t>(std::chrono::microseconds(time).count());
    check(sd_event_add_time_relative(loop, &made->source_, CLOCK_MONOTONIC, micro, 1000, handler, made.get()),
          "sd_event_add_time_relative");
    return made;
}

std::unique_ptr<EventSource> EventSource::signal(sd_event* loop, int number, std::function<void()> run) {
    std::unique_ptr<EventSource> made(new EventSource(std::move(run)));
    const auto handler = [](sd_event_source*, const signalfd_siginfo*, void* self) { return source(self)->call(); };
    check(sd_event_add_signal(loop, &made->source_, number, handler, made.get()), "sd_event_add_signal");
    return made;
}

} // namespace Doors
