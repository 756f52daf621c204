// The table of display slots.
#include "session_table.h"

#include "logger.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace Vard {

std::optional<DisplayRange> DisplayRange::of(int min, int max, const char* func) {
    const long low = std::min(std::labs(min), std::labs(max));
    const long high = std::max(std::labs(min), std::labs(max));
    if (high > long{lastDisplay} + 1) {
        Syslog::error("%s: display range refused: %d, %d", func, min, max);
        return std::nullopt;
    }
    return DisplayRange{static_cast<int>(low), static_cast<size_t>(high - low)};
}

void SessionTable::setRange(const DisplayRange& range) {
    const std::scoped_lock lock(mutex_);
    if (slots_.size() < range.count) {
        slots_.resize(range.count);
    }
    range_ = range;
}

DisplayRange SessionTable::range() const {
    const std::scoped_lock lock(mutex_);
    return range_;
}

std::shared_ptr<Session> SessionTable::findSession(const uint32_t& sid) const {
    const std::scoped_lock lock(mutex_);
    const auto found = std::ranges::find_if(slots_, [&](const auto& slot) { return slot && slot->sid == sid; });
    return found == slots_.end() ? nullptr : *found;
}

std::shared_ptr<Session> SessionTable::findUserSession(const std::string& username) const {
    const std::scoped_lock lock(mutex_);
    const auto found = std::ranges::find_if(
        slots_, [&](const auto& slot) { return slot && !slot->seamless && slot->username == username; });
    return found == slots_.end() ? nullptr : *found;
}

std::vector<std::shared_ptr<Session>> SessionTable::findUserSessions(const std::string& username) const {
    const std::scoped_lock lock(mutex_);
    std::vector<std::shared_ptr<Session>> result;
    std::ranges::copy_if(slots_, std::back_inserter(result),
                         [&](const auto& slot) { return slot && slot->username == username; });
    return result;
}

uint32_t SessionTable::count(const std::function<bool(const Session&)>& predicate) const {
    const std::scoped_lock lock(mutex_);
    return static_cast<uint32_t>(
        std::ranges::count_if(slots_, [&](const auto& slot) { return slot && predicate(*slot); }));
}

std::shared_ptr<const uint32_t> SessionTable::leaseLocked(uint32_t display) {
    std::erase_if(leases_, [](const auto& lease) { return lease.expired(); });
    const bool taken = std::ranges::any_of(leases_, [&](const auto& lease) {
        const auto held = lease.lock();
        return held && *held == display;
    });
    if (taken) {
        return nullptr;
    }
    auto lease = std::make_shared<const uint32_t>(display);
    leases_.emplace_back(lease);
    return lease;
}

void SessionTable::clear() {
    std::vector<std::shared_ptr<Session>> released;
    {
        const std::scoped_lock lock(mutex_);
        slots_.swap(released);
    }
    for (const auto& session : released) {
        if (session) {
            session->ended = true;
        }
    }
}

} // namespace Vard
