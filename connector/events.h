// The event loop's sources as owning objects.
#pragma once

#include <systemd/sd-event.h>

#include <chrono>
#include <functional>
#include <memory>

namespace Doors {

/// One source of the event loop; it is taken out of the loop when it goes. What it calls may destroy it. All on the one
/// thread of the program; a source that cannot be made throws std::system_error.
class EventSource {
public:
    /// Calls `run` whenever `fd` can be read. The descriptor stays the caller's.
    static std::unique_ptr<EventSource> readable(sd_event* loop, int fd, std::function<void()> run);
    /// Calls `run` once, when the child has ended; it need not be reaped in there. SIGCHLD must be blocked.
    static std::unique_ptr<EventSource> childEnd(sd_event* loop, pid_t pid, std::function<void()> run);
    /// Calls `run` once after the time.
    static std::unique_ptr<EventSource> after(sd_event* loop, std::chrono::milliseconds time,
                                              std::function<void()> run);
    /// Calls `run` at every such signal, which must be blocked.
    static std::unique_ptr<EventSource> signal(sd_event* loop, int number, std::function<void()> run);

    /// Takes it out of the loop; nothing is called any more.
    ~EventSource() { sd_event_source_disable_unref(source_); }
    EventSource(const EventSource&) = delete;
    EventSource& operator=(const EventSource&) = delete;

private:
    explicit EventSource(std::function<void()> run) : run_(std::move(run)) {}
    int call();

    sd_event_source* source_ = nullptr;
    std::function<void()> run_;
};

} // namespace Doors
