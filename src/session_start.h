// The start of a session: the one that is there, or a new one.
#pragma once

#include "session_assembly.h"

#include <memory>
#include <utility>

namespace Vard {

/// Starts sessions, one at a time: the table is held from top to bottom. Main thread. What it is made of must outlive
/// it.
class SessionStart {
public:
    explicit SessionStart(StartServices services) : services_(std::move(services)) {}

    /// The user's existing session for the same program, resized, or a new one; empty after logging the reason. Its end
    /// is not noticed before the hold goes. Writes the login's audit record. Throws vard_error when the authority file
    /// cannot be written, pam_error when PAM cannot be asked.
    RequestHold start(const StartRequest& request);

private:
    RequestHold startNew(const StartRequest& request, TableView& sessions, LoginAudit& audit);
    void repeatGeometry(const std::shared_ptr<Session>& session, const DisplayFormat& format);

    StartServices services_;
};

} // namespace Vard
