// Who may be here without having shown a password.
#include "admission.h"

#include <algorithm>

namespace Doors {

using namespace std::chrono_literals;

namespace {
constexpr auto atOnce = 3s;
} // namespace

Crowd::Place& Crowd::Place::operator=(Place&& other) noexcept {
    if (this != &other) {
        giveBack();
        crowd_ = std::exchange(other.crowd_, nullptr);
        member_ = other.member_;
    }
    return *this;
}

void Crowd::Place::giveBack() {
    if (Crowd* crowd = std::exchange(crowd_, nullptr)) {
        const auto counted = crowd->count_.find(member_->from);
        if (--counted->second == 0) {
            crowd->count_.erase(counted);
        }
        crowd->members_.erase(member_);
    }
}

Crowd::Place Crowd::enter(const Address& address, std::function<void()> leave) {
    const auto from = neighbour(address);
    makeRoom(from);
    members_.push_back({from, std::move(leave)});
    ++count_[from];
    return {*this, std::prev(members_.end())};
}

void Crowd::makeRoom(const Address& from) {
    if (const auto own = count_.find(from); own != count_.end() && own->second >= perNeighbour_) {
        sendAway(from);
    } else if (members_.size() >= total_) {
        size_t most = 0;
        for (const auto& [whose, count] : count_) {
            most = std::max(most, count);
        }
        sendAway(
            std::ranges::find_if(members_, [&](const Member& member) { return count_[member.from] == most; })->from);
    }
}

void Crowd::sendAway(const Address& from) {
    const auto oldest = std::ranges::find(members_, from, &Member::from);
    const auto leave = oldest->leave; // its member goes meanwhile
    leave();
}

Arrivals::Arrivals(size_t perNeighbour, size_t total)
    : each_{Clock::duration(1s) / perNeighbour}, all_{Clock::duration(1s) / total} {}

bool Arrivals::Pace::allows(Clock::time_point used, Clock::time_point now) const {
    return used + distance <= now + atOnce;
}

bool Arrivals::admit(const Address& address, Clock::time_point now) {
    const auto from = neighbour(address);
    const auto known = used_.find(from);
    if (!each_.allows(known == used_.end() ? now : known->second, now) || !all_.allows(allUsed_, now)) {
        return false;
    }
    all_.use(allUsed_, now);
    each_.use(used_[from], now);
    forgetIdle(now);
    return true;
}

// Who is admitted is remembered for as long as he could come too often: those are few, whoever else tries.
void Arrivals::forgetIdle(Clock::time_point now) {
    if (used_.size() >= cleanAt_) {
        std::erase_if(used_, [now](const auto& entry) { return entry.second <= now; });
        cleanAt_ = std::max<size_t>(256, 2 * used_.size());
    }
}

} // namespace Doors
