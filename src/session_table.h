// The table of display slots.
#pragma once

#include "session.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Vard {

/// The last display that an X server can have.
inline constexpr uint32_t lastDisplay = 59535;

/// The range of display numbers handed out: `first` and how many.
struct DisplayRange {
    int first = 33;
    size_t count = 22;

    /// The range between two configured ends, in any order, by their absolute values; the upper end is not part of it.
    /// None, after an error line under `func`, when a display above lastDisplay would be part of it.
    static std::optional<DisplayRange> of(int min, int max, const char* func);
};

/// One slot per display number, each empty or holding a session. Operations named "...Locked", and every field of a
/// record in the table that more than one thread uses, need mutex() held; the others take it themselves.
class SessionTable {
public:
    /// Guards the slots and the records in them.
    std::mutex& mutex() const { return mutex_; }

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
    /// How many sessions the predicate takes.
    [[nodiscard]] uint32_t count(const std::function<bool(const Session&)>& predicate) const;

    /// The slots in display order.
    [[nodiscard]] std::vector<std::shared_ptr<Session>>& slotsLocked() { return slots_; }
    [[nodiscard]] const std::vector<std::shared_ptr<Session>>& slotsLocked() const { return slots_; }
    /// The display of a slot.
    [[nodiscard]] uint32_t displayLocked(size_t slot) const {
        return static_cast<uint32_t>(range_.first) + static_cast<uint32_t>(slot);
    }
    /// The right to use a display, for a new record to hold. Empty while an earlier holder is still alive, in the table
    /// or on its way out: its end would take the new session's files away.
    [[nodiscard]] std::shared_ptr<const uint32_t> leaseLocked(uint32_t display);

    /// Empties the table, its size becomes 0; the records are destroyed without the lock.
    void clear();

private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Session>> slots_;
    std::vector<std::weak_ptr<const uint32_t>> leases_;
    DisplayRange range_{0, 0};
};

} // namespace Vard
