// What the watchers find in the session table, and the sessions they end.
#pragma once

#include "child_waits.h"
#include "session_table.h"

#include <chrono>
#include <functional>
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
/// Takes both locks at once.
std::vector<SessionEvent> takeEndedSessions(SessionTable& table, ChildWaits& children, UserChildren& users);

/// Lets go of the transports that have gone; their sessions are the result and stay in the table. A seamless session's
/// idle time begins.
std::vector<SessionEvent> takeLostTransports(SessionTable& table);

/// Tells the X server of every session older than its limit to end, at each call anew.
/// `clock` tells the time.
void endSessionsOverLimit(SessionTable& table, const std::function<std::chrono::system_clock::time_point()>& clock =
                                                   std::chrono::system_clock::now);

/// Tells the X server of every seamless session to end whose client has been gone for more than `timeout`; once.
void endIdleSeamlessSessions(SessionTable& table, std::chrono::seconds timeout,
                             std::chrono::steady_clock::time_point now);

} // namespace Vard
