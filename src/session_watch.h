// What the watchers find in the session table: children that have ended, transports that have gone.
#pragma once

#include "child_waits.h"
#include "session_table.h"

#include <memory>
#include <string>
#include <vector>

namespace Vard {

/// A session that something has happened to, with its client's address at that moment.
struct SessionEvent {
    std::shared_ptr<Session> session;
    std::string address;
};

// The watcher thread calls these, one at a time. None waits for anything but the locks and, at most, a millisecond.

/// Collects the children that have ended. A session whose X server or program is among them leaves the table, and its
/// slot is free; these sessions are the result. A child that nothing ends counts as ended, and `users` learns of it.
/// Takes both locks, the table's first.
std::vector<SessionEvent> takeEndedSessions(SessionTable& table, ChildWaits& children, UserChildren& users);

/// Lets go of the transports that have gone; their sessions are the result and stay in the table. A seamless session's
/// idle time begins.
std::vector<SessionEvent> takeLostTransports(SessionTable& table);

} // namespace Vard
