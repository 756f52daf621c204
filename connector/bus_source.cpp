// The system bus on the event loop.
#include "bus_source.h"

#include <poll.h>

namespace Doors {

namespace {
constexpr int mostAtOnce = 64; // anybody may send as many as he likes: clients come in between
} // namespace

BusSource::BusSource(asio::io_context& loop, BusClient::Connection& bus, std::function<void()> lost)
    : bus_(bus), lost_(std::move(lost)), descriptor_(loop, sd_bus_get_fd(bus.get())), timer_(loop) {
    // What came while the caller still set the connection up is there already, with nothing left to be read.
    timer_.start(std::chrono::milliseconds(0), [this] { handOut(); });
}

BusSource::~BusSource() {
    descriptor_.cancel();
    descriptor_.release(); // it is the bus's
}

void BusSource::handOut() {
    try {
        for (int count = 0; bus_.process(); ++count) {
            if (count == mostAtOnce) {
                timer_.start(std::chrono::milliseconds(0), [this] { handOut(); });
                return;
            }
        }
    } catch (const BusClient::Error&) {
        lost_();
        return;
    }
    watch();
}

void BusSource::watch() {
    const int events = sd_bus_get_events(bus_.get());
    uint64_t until = UINT64_MAX; // in microseconds of the clock that std::chrono::steady_clock is, too
    if (events < 0 || sd_bus_get_timeout(bus_.get(), &until) < 0) {
        lost_();
        return;
    }
    if ((events & POLLIN) != 0 && !reading_) {
        waitFor(Descriptor::wait_read, reading_);
    }
    if ((events & POLLOUT) != 0 && !writing_) {
        waitFor(Descriptor::wait_write, writing_);
    }
    if (until == UINT64_MAX) {
        timer_.cancel();
        return;
    }
    const auto left = std::chrono::microseconds(until) - std::chrono::steady_clock::now().time_since_epoch();
    timer_.start(std::max(std::chrono::ceil<std::chrono::milliseconds>(left), std::chrono::milliseconds(0)),
                 [this] { handOut(); });
}

void BusSource::waitFor(Descriptor::wait_type what, bool& waiting) {
    waiting = true;
    descriptor_.async_wait(what, [this, &waiting, alive = std::weak_ptr(alive_)](Failed failed) {
        if (!alive.expired()) {
            waiting = false;
            if (!failed) {
                handOut();
            }
        }
    });
}

} // namespace Doors
