// The methods on sessions that are there: what they are, how they look, their limits and their ends; the steps of a
// desktop's preparation.
#include "bus_rows.h"
#include "dbus_service.h"
#include "json_writer.h"
#include "process_list.h"
#include "secret.h"
#include "session_desktop.h"
#include "session_end.h"
#include "session_limits.h"
#include "session_views.h"
#include "text.h"

namespace Vard {

std::vector<BusRow> DBusService::busSessionsInfo() {
    info("%s", "busSessionsInfo");
    return busRows(sessionRows(table_));
}

std::vector<DBus::Struct<std::string, uint32_t>> DBusService::vardSessions() {
    debug("%s", "vardSessions");
    return busPairs(sessionNames(table_));
}

std::string DBusService::vardSessionInfoJson(Number session) {
    const auto found = table_.findSession(session);
    if (!found) {
        return "{}";
    }
    auto json = sessionJson(table_, *found, Xcb::Connector::answerLimit);
    const Utils::WipeGuard guard(json); // the hash line is in it
    if (!fitsMessage(json)) {
        warning("%s: session too large for an answer: 0x%08x", "vardSessionInfoJson", session);
        return "{}";
    }
    return Utils::toValidUtf8(json);
}

std::string DBusService::vardUserInfoJson(Text user) {
    auto json = sessionsJson(table_, table_.findUserSessions(user));
    const Utils::WipeGuard guard(json); // the hash lines are in it
    return Utils::toValidUtf8(json);
}

std::string DBusService::vardSessionProcess(Number session) {
    const auto found = table_.findSession(session);
    if (!found) {
        warning("%s: session not found: 0x%08x", "vardSessionProcess", session);
        return "";
    }
    return Utils::toValidUtf8(processesJson(found->uid, "vardSessionProcess"));
}

bool DBusService::busSessionShutdown(Text username) {
    notice("%s: username: %s", "busSessionShutdown", username.c_str());
    return endUserSession(table_, username);
}

bool DBusService::vardSessionShutdown(Number session) {
    notice("%s: session id: 0x%08x", "vardSessionShutdown", session);
    return endSession(table_, session);
}

bool DBusService::vardDisconnect(Number session) {
    notice("%s: session id: 0x%08x", "vardDisconnect", session);
    return disconnectSession(table_, session);
}

void DBusService::vardSessionDurationLimit(Number session, Number countsec) {
    setLimit(table_, "vardSessionDurationLimit", session, countsec, &SessionState::durationLimit);
}

void DBusService::vardSessionInactivityLimit(Number session, Number countsec) {
    setLimit(table_, "vardSessionInactivityLimit", session, countsec, &SessionState::inactivityLimit);
}

bool DBusService::vardSendNotify(Number session, Text header, Text message, const uint8_t& urgency) {
    return notices_.send(table_, session, {header, message, urgency});
}

void DBusService::vardSessionGeometry(Number session, Pixels width, Pixels height) {
    info("%s: session id: 0x%08x, width: %u, height: %u", "vardSessionGeometry", session, width, height);
    if (const auto found = table_.findSession(session)) {
        waitSessionGeometryUpdate(found.get(), width, height);
    }
}

std::string DBusService::vardSessionDBusAddress(Text username) {
    info("%s: username: %s", "vardSessionDBusAddress", username.c_str());
    const auto found = table_.findUserSession(username);
    return found ? sessionBusAddress(*found) : "";
}

// The steps of a desktop's preparation. Those of a start go from room to room; what nobody here calls is required.

void DBusService::waitSessionDBus(const Session* session) { Vard::waitSessionDBus(session); }

bool DBusService::waitSessionGeometryUpdate(const Session* session, unsigned short width, unsigned short height) {
    return Vard::waitSessionGeometryUpdate(session, width, height, *config_.settings());
}

void DBusService::waitSessionFixSetxkbmapEvdev(const Session* session) { Vard::waitSessionFixSetxkbmapEvdev(session); }

void DBusService::waitSessionLoadX11Resources(const Session* session) { Vard::waitSessionLoadX11Resources(session); }

void DBusService::sessionCorrectMainWindowSize(const SessionPtr& session) {
    Vard::sessionCorrectMainWindowSize(session);
}

std::string DBusService::readSessionDBusAddress(Text directory, uint32_t display) {
    return Vard::readSessionDBusAddress(directory, display);
}

} // namespace Vard
