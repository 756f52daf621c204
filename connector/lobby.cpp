// Where clients wait until they have shown a password.
#include "lobby.h"

#include <systemd/sd-journal.h>

#include <algorithm>

namespace Doors {

using namespace std::chrono_literals;

namespace {
constexpr auto silence = 10s; // a flood must not fill the journal
} // namespace

Lobby::Lobby(const Options& options)
    : unread(options.strangers, options.strangersInAll),
      strangers(options.strangers, options.strangersInAll),
      options_(options),
      arrivals_(options.arrivals, options.arrivalsInAll) {}

bool Lobby::isBalancer(const Address& address) const {
    return std::ranges::any_of(options_.balancers, [&](const Network& network) { return network.contains(address); });
}

bool Lobby::admit(const Address& address) {
    const bool admitted = arrivals_.admit(address);
    if (!admitted) {
        turnedAway(address);
    }
    return admitted;
}

void Lobby::turnedAway(const Address& address) {
    const auto now = Arrivals::Clock::now();
    ++turnedAway_;
    if (now - told_ >= silence) {
        told_ = now;
        sd_journal_print(LOG_WARNING, "too many connections, turned away: %zu, the last from: %s", turnedAway_,
                         neighbour(address).to_string().c_str());
        turnedAway_ = 0;
    }
}

} // namespace Doors
