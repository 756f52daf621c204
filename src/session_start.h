// The start of a session, from the request to the running program.
#pragma once

#include "audit_log.h"
#include "display.h"
#include "profile_volume.h"
#include "service_config.h"
#include "session_table.h"

#include <filesystem>
#include <list>
#include <memory>
#include <string>

namespace Vard {

/// What a session is asked for.
struct StartRequest {
    const std::string& user;
    const std::string& password;
    DisplayFormat format{};
    std::filesystem::path program{};
    std::list<std::string> args{};
};

/// Starts sessions, one at a time: the table is held from top to bottom. Main thread. What it is made of must outlive
/// it.
class SessionStart {
public:
    /// The rooms that a start goes through.
    struct Services {
        const ServiceConfig& config;
        SessionTable& table;
        DisplayServices display;
        ProfileVolumes& profiles;
        AuditLog& audit;
        std::filesystem::path directory; ///< of the authority files
    };

    explicit SessionStart(Services services) : services_(std::move(services)) {}

    /// The user's existing session for the same program, resized, or a new one; empty after logging the reason. Its end
    /// is not noticed before the hold goes. Writes the login's audit record. Throws vard_error when the authority file
    /// cannot be written, pam_error when PAM cannot be asked.
    RequestHold start(const StartRequest& request);

private:
    RequestHold startNew(const StartRequest& request, TableView& sessions, LoginAudit& audit);
    void repeatGeometry(const std::shared_ptr<Session>& session, const DisplayFormat& format);

    Services services_;
};

/// Mounts the profile of the session's user when there is one; nothing for a null session, or twice.
void sessionMountProfile(Session* session, ProfileVolumes& profiles, const JsonConfig& settings);

} // namespace Vard
