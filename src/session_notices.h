// Notices to users.
#pragma once

#include "child_waits.h"
#include "configuration.h"
#include "session_table.h"

#include <cstdint>
#include <string>

namespace Vard {

/// What a notice tells.
struct SessionNotice {
    std::string header;
    std::string message;
    uint8_t urgency = 0;
    bool attempt = false; ///< it tells of an attempt to connect; these have a share of their own
};

/// Tells of an attempt to connect from an address, whatever the text that a proxy takes for one.
SessionNotice attemptNotice(const std::string& address);

/// Shows notices in sessions. What it is made of must outlive it. Any thread.
class SessionNotices {
public:
    SessionNotices(const Configuration& config, ChildWaits& children) : config_(config), children_(children) {}

    /// Starts the program that shows the notice in a session, unless too many are shown already; why it is not shown is
    /// logged under "vardSendNotify". Texts beyond what can be shown are cut. False only for an unknown session.
    bool send(const SessionTable& table, uint32_t sid, const SessionNotice& notice);

private:
    void start(Session& session, const SessionNotice& notice);

    const Configuration& config_;
    ChildWaits& children_;
};

} // namespace Vard
