// Views of the session table.
#include "dbus_service.h"

#include "process_list.h"
#include "session_views.h"
#include "utils.h"

#include <algorithm>
#include <iterator>

namespace Vard {

namespace {

DBus::Struct<uint32_t, std::string, std::string, uint32_t, uint32_t, uint32_t> busRow(const SessionRow& row) {
    DBus::Struct<uint32_t, std::string, std::string, uint32_t, uint32_t, uint32_t> result{};
    result._1 = row.display;
    result._2 = row.username;
    result._3 = row.start;
    result._4 = row.age;
    result._5 = row.uid;
    result._6 = row.gid;
    return result;
}

} // namespace

std::vector<DBus::Struct<uint32_t, std::string, std::string, uint32_t, uint32_t, uint32_t>>
DBusService::busSessionsInfo() {
    info("%s", "busSessionsInfo");
    const auto rows = sessionRows(table_);
    std::vector<DBus::Struct<uint32_t, std::string, std::string, uint32_t, uint32_t, uint32_t>> result;
    result.reserve(rows.size());
    std::ranges::transform(rows, std::back_inserter(result), busRow);
    return result;
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
    return found ? Utils::toValidUtf8(sessionJson(table_, *found, Xcb::Connector::answerLimit)) : "{}";
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
