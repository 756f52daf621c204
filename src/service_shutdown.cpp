// The ends of sessions on request and at the stop of the service. Nothing is torn down here: one child is told to end,
// and the watchers do the rest, so that every cause of a session's end takes the same road.
#include "dbus_service.h"

#include <algorithm>

namespace Vard {

namespace {

/// Tells a session's process to end, if there is one; the caller holds the table's lock.
bool endProcess(const ProcessHandle& process, const char* func) {
    if (process) {
        Syslog::info("%s: kill process: %d", func, process.pid());
        process.terminate();
    }
    return static_cast<bool>(process);
}

} // namespace

bool DBusService::busSessionShutdown(const std::string& username) {
    notice("%s: username: %s", "busSessionShutdown", username.c_str());
    const std::scoped_lock lock(table_.mutex());
    const auto& slots = table_.slotsLocked();
    const auto found =
        std::ranges::find_if(slots, [&](const auto& slot) { return slot && slot->username == username; });
    if (found == slots.end()) {
        warning("%s: session not found: %s", "busSessionShutdown", username.c_str());
        return false;
    }
    endProcess((*found)->pid1, "busSessionShutdown");
    return true;
}

bool DBusService::vardSessionShutdown(const uint32_t& session) {
    notice("%s: session id: 0x%08x", "vardSessionShutdown", session);
    const auto found = table_.findSession(session);
    if (!found) {
        warning("%s: session not found: 0x%08x", "vardSessionShutdown", session);
        return false;
    }
    const std::scoped_lock lock(table_.mutex());
    endProcess(found->pid1, "vardSessionShutdown");
    return true;
}

bool DBusService::vardDisconnect(const uint32_t& session) {
    notice("%s: session id: 0x%08x", "vardDisconnect", session);
    const auto found = table_.findSession(session);
    if (!found) {
        warning("%s: session not found: 0x%08x", "vardDisconnect", session);
        return false;
    }
    const std::scoped_lock lock(table_.mutex());
    if (!endProcess(found->pid3, "vardDisconnect")) {
        return false;
    }
    found->remoteaddr.clear();
    return true;
}

void DBusService::sessionsClear() {
    stopBegan_ = std::chrono::steady_clock::now();
    tasks_.stop();
    request_.reset();
    table_.clear();
    childWaits_.endAll("sessionsClear");
    adopted_.endAll("sessionsClear");
}

} // namespace Vard
