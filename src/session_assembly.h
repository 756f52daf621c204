// One new session: the steps from the account to the running program.
#pragma once

#include "audit_log.h"
#include "configuration.h"
#include "display.h"
#include "profile_volume.h"
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

/// The rooms that a start goes through.
struct StartServices {
    const Configuration& config;
    SessionTable& table;
    DisplayServices display;
    ProfileVolumes& profiles;
    AuditLog& audit;
    std::filesystem::path directory; ///< of the authority files
};

/// Makes one session on one display. What a failure leaves behind goes with the objects. Main thread; all that it is
/// made of must outlive it.
class SessionAssembly {
public:
    SessionAssembly(const StartRequest& request, const StartServices& services, const JsonConfig& settings,
                    TableView& sessions)
        : request_(request), services_(services), settings_(settings), sessions_(sessions) {}

    /// The session with its program running, not in the table yet; empty after logging the reason. Tells `audit` when
    /// the attempt is one to report. Throws vard_error when the authority file cannot be written, pam_error when PAM
    /// cannot be asked.
    std::shared_ptr<Session> build(DisplayRight right, LoginAudit& audit);

private:
    bool checkAccount(Session& session, LoginAudit& audit);
    bool checkHome(Session& session);
    bool startDisplay(Session& session);
    bool bringUp(Display& display, Session& session);
    bool startProgram(Session& session);

    const StartRequest& request_;
    const StartServices& services_;
    const JsonConfig& settings_; // one snapshot for the whole start
    TableView& sessions_;
};

/// Mounts the profile of the session's user when there is one; nothing for a null session, or twice.
void sessionMountProfile(Session* session, ProfileVolumes& profiles, const JsonConfig& settings);

} // namespace Vard
