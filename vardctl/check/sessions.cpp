// The sessions that run.
#include "looks.h"
#include "session_info.h"

namespace Vardctl {

// Its user sees only that no client gets in.
void lookAtSessions(const Subject& /*subject*/, const Findings& findings) {
    try {
        Service service;
        const auto rows = sessionRows(service);
        for (const auto& row : rows) {
            const auto session = findSession(service, row["session"].asUInt());
            if (session && (*session)["ntlm"].asString().empty()) {
                const auto user = row["user"].asString();
                findings.warning("nobody can connect to session " + row["session"].asString() + " of " + user +
                                     ", it has no hash line",
                                 "see whether the home is there and has room: " + (*session)["home"].asString() +
                                     "; then `vardctl login " + user + "'");
            }
        }
        findings.ok("sessions: " + std::to_string(rows.size()));
    } catch (const BusClient::Error&) { // what there is to say of the bus is said
    }
}

} // namespace Vardctl
