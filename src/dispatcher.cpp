// The bus loop of the process.
#include "dispatcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

namespace Vard {

ServiceDispatcher serviceDispatcher;

ServiceDispatcher::ServiceDispatcher() {
    // The library leaves the pipe open to children and blocking: a byte that a child wrote would keep a core busy for
    // ever.
    for (const int fd : _fdunlock) {
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    }
}

void ServiceDispatcher::enter() {
    while (!leaving_) {
        do_iteration();
        drain();
    }
}

void ServiceDispatcher::leave() {
    leaving_ = true;
    wake();
}

void ServiceDispatcher::wake() noexcept {
    // A full pipe wakes the loop just as well.
    [[maybe_unused]] const auto written = ::write(_fdunlock[1], "", 1);
}

DBus::Watch* ServiceDispatcher::add_watch(DBus::Watch::Internal* internal) {
    auto* watch = BusDispatcher::add_watch(internal);
    busSocket_.reset(::fcntl(watch->descriptor(), F_DUPFD_CLOEXEC, 0));
    return watch;
}

bool ServiceDispatcher::hungUp() const noexcept {
    pollfd entry{busSocket_.get(), 0, 0};
    return ::poll(&entry, 1, 0) > 0 && (entry.revents & POLLHUP) != 0;
}

void ServiceDispatcher::hangUp() noexcept { ::shutdown(busSocket_.get(), SHUT_RDWR); }

void ServiceDispatcher::drain() noexcept {
    std::array<char, 64> bytes{};
    while (::read(_fdunlock[0], bytes.data(), bytes.size()) > 0) {
    }
}

} // namespace Vard
