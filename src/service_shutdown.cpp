// The ends of sessions on request and at the stop of the service. Nothing is torn down here: one child is told to end,
// and the watchers do the rest, so that every cause of a session's end takes the same road.
#include "dbus_service.h"

#include "bus_boundary.h"

namespace Vard {

bool DBusService::busSessionShutdown(const std::string& username) {
    static_cast<void>(username);
    throw not_supported("busSessionShutdown");
}

bool DBusService::vardSessionShutdown(const uint32_t& session) {
    notice("%s: session id: 0x%08x", "vardSessionShutdown", session);
    const auto found = table_.findSession(session);
    if (!found) {
        warning("%s: session not found: 0x%08x", "vardSessionShutdown", session);
        return false;
    }
    const std::scoped_lock lock(table_.mutex());
    if (found->pid1) {
        info("%s: kill process: %d", "vardSessionShutdown", found->pid1.pid());
        found->pid1.terminate();
    }
    return true;
}

bool DBusService::vardDisconnect(const uint32_t& session) {
    static_cast<void>(session);
    throw not_supported("vardDisconnect");
}

void DBusService::sessionsClear() {
    tasks_.stop();
    table_.clear();
    childWaits_.endAll("sessionsClear");
}

} // namespace Vard
