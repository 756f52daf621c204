// The table of sessions, one slot per display, and the view that holds its lock.
#include "session_table.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <stdexcept>
#include <utility>

namespace Vard {

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
        slots_, [&](const auto& slot) { return slot && !slot->state_.seamless && slot->username == username; });
    return found == slots_.end() ? nullptr : *found;
}

std::vector<std::shared_ptr<Session>> SessionTable::findUserSessions(const std::string& username) const {
    const std::scoped_lock lock(mutex_);
    std::vector<std::shared_ptr<Session>> result;
    std::ranges::copy_if(slots_, std::back_inserter(result),
                         [&](const auto& slot) { return slot && slot->username == username; });
    return result;
}

void SessionTable::clear() {
    Slots released;
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

std::vector<std::shared_ptr<Session>> TableView::sessions() const {
    std::vector<std::shared_ptr<Session>> result;
    std::ranges::copy_if(table_.slots_, std::back_inserter(result), [](const auto& slot) { return slot != nullptr; });
    return result;
}

// The table may have more slots than the range, and the range's last may be beyond what a server can have.
std::vector<uint32_t> TableView::freeDisplays() const {
    std::set<uint32_t> taken;
    for (const auto& session : sessions()) {
        taken.insert(session->sid);
    }
    std::vector<uint32_t> result;
    auto display = static_cast<uint32_t>(table_.range_.first);
    for (const auto& slot : table_.slots_) {
        if (!slot && display <= lastDisplay && !taken.contains(display)) {
            result.push_back(display);
        }
        ++display;
    }
    return result;
}

void TableView::put(std::shared_ptr<Session> session) {
    auto& slot = table_.slots_.at(session->display - static_cast<uint32_t>(table_.range_.first));
    if (slot) {
        throw std::logic_error("the display has a session");
    }
    slot = std::move(session);
}

void TableView::remove(Session& session) {
    session.ended = true;
    const auto found = std::ranges::find(table_.slots_, &session, &std::shared_ptr<Session>::get);
    if (found != table_.slots_.end()) {
        found->reset();
    }
}

} // namespace Vard
