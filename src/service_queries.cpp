// Views of the session table.
#include "dbus_service.h"

#include "bus_rows.h"
#include "json_writer.h"
#include "process_list.h"
#include "session_views.h"
#include "utils.h"

namespace Vard {

std::vector<BusRow> DBusService::busSessionsInfo() {
    info("%s", "busSessionsInfo");
    return busRows(sessionRows(table_));
}

std::vector<DBus::Struct<std::string, uint32_t>> DBusService::vardSessions() {
    debug("%s", "vardSessions");
    std::vector<DBus::Struct<std::string, uint32_t>> result;
    const std::scoped_lock lock(table_.mutex());
    result.reserve(table_.slotsLocked().size());
    for (const auto& session : table_.slotsLocked()) {
        if (session) {
            auto& entry = result.emplace_back(DBus::Struct<std::string, uint32_t>{});
            entry._1 = Utils::toValidUtf8(session->username);
            entry._2 = session->sid;
        }
    }
    return result;
}

std::string DBusService::vardSessionInfoJson(const uint32_t& session) {
    const auto found = table_.findSession(session);
    if (!found) {
        return "{}";
    }
    const auto json = sessionJson(table_, *found, Xcb::Connector::answerLimit);
    if (!fitsMessage(json)) {
        warning("%s: session too large for an answer: 0x%08x", "vardSessionInfoJson", session);
        return "{}";
    }
    return Utils::toValidUtf8(json);
}

std::string DBusService::vardUserInfoJson(const std::string& user) {
    return Utils::toValidUtf8(sessionsJson(table_, table_.findUserSessions(user)));
}

std::string DBusService::vardSessionProcess(const uint32_t& session) {
    const auto found = table_.findSession(session);
    if (!found) {
        warning("%s: session not found: 0x%08x", "vardSessionProcess", session);
        return "";
    }
    return Utils::toValidUtf8(processesJson(found->uid, "vardSessionProcess"));
}

} // namespace Vard
