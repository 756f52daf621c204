// Interrupts, taken at a place where they can be answered.
#include "stop_signals.h"

#include "failure.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

namespace Vardctl {

namespace {

sigset_t interrupts() {
    sigset_t set{};
    ::sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        ::sigaddset(&set, number);
    }
    return set;
}

} // namespace

HeldSignals::HeldSignals() {
    const auto set = interrupts();
    descriptor_ = ::signalfd(-1, &set, SFD_CLOEXEC);
    if (descriptor_ < 0) {
        throw Failure(ExitCode::failed, "signals cannot be watched");
    }
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
}

HeldSignals::~HeldSignals() {
    ::close(descriptor_);
    const auto set = interrupts();
    ::sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

void HeldSignals::take() const {
    signalfd_siginfo info{};
    [[maybe_unused]] const auto count = ::read(descriptor_, &info, sizeof info);
}

} // namespace Vardctl
