// The table of sessions, one slot per display, and the view that holds its lock.
#pragma once

#include "display_range.h"
#include "session.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Vard {

class TableView;

/// One slot per display number, each empty or holding a session. The look-ups take the lock themselves; the slots, and
/// what changes in the records, are reached through a view only.
class SessionTable {
public:
    /// The table, held until the view goes. Waits for whoever holds it: for seconds while a session starts.
    [[nodiscard]] TableView lock();

    /// Takes over a range: slots are only ever added, since sessions may live in the last ones.
    void setRange(const DisplayRange& range);
    /// The range in force.
    [[nodiscard]] DisplayRange range() const;

    /// The first session with that id, or empty.
    [[nodiscard]] std::shared_ptr<Session> findSession(const uint32_t& sid) const;
    /// The user's first session that is not seamless, or empty. A user's application sessions never count as the
    /// desktop.
    [[nodiscard]] std::shared_ptr<Session> findUserSession(const std::string& username) const;
    /// All sessions of that user in slot order, seamless ones too.
    [[nodiscard]] std::vector<std::shared_ptr<Session>> findUserSessions(const std::string& username) const;

    /// Empties the table, its size becomes 0; the records are destroyed without the lock.
    void clear();

private:
    friend class TableView;
    using Slots = std::vector<std::shared_ptr<Session>>;

    mutable std::mutex mutex_;
    Slots slots_;
    DisplayRange range_{0, 0};
};

/// The table while its lock is held. Nobody waits for the bus or the audit socket with one in hand; the child list's
/// lock may be taken under it.
class TableView {
public:
    /// The sessions in display order.
    [[nodiscard]] std::vector<std::shared_ptr<Session>> sessions() const;
    /// What may change in a session, in the table or on its way there.
    [[nodiscard]] SessionState& state(Session& session) const { return session.state_; }
    [[nodiscard]] const SessionState& state(const Session& session) const { return session.state_; }

    /// How many slots there are.
    [[nodiscard]] size_t size() const { return table_.slots_.size(); }
    /// The displays of the empty slots, but for those that a session still has from before the range was moved.
    [[nodiscard]] std::vector<uint32_t> freeDisplays() const;
    /// Puts a session into the slot of its display, which must be empty.
    void put(std::shared_ptr<Session> session);
    /// Takes a session out of the table: it has ended.
    void remove(Session& session);

private:
    friend class SessionTable;
    explicit TableView(SessionTable& table) : lock_(table.mutex_), table_(table) {}

    std::unique_lock<std::mutex> lock_;
    SessionTable& table_;
};

inline TableView SessionTable::lock() { return TableView(*this); }

} // namespace Vard
