// The table of sessions in the form that the bus carries.
#pragma once

#include "session_views.h"

#include <dbus-c++/dbus.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace Vard {

/// One row: display, user name, start, age, user id, group id.
using BusRow = DBus::Struct<uint32_t, std::string, std::string, uint32_t, uint32_t, uint32_t>;

/// The rows in that form. Any thread.
inline std::vector<BusRow> busRows(const std::vector<SessionRow>& rows) {
    std::vector<BusRow> result;
    result.reserve(rows.size());
    for (const auto& row : rows) {
        BusRow& entry = result.emplace_back(BusRow{});
        entry._1 = row.display;
        entry._2 = row.username;
        entry._3 = row.start;
        entry._4 = row.age;
        entry._5 = row.uid;
        entry._6 = row.gid;
    }
    return result;
}

/// The pairs in that form. Any thread.
inline std::vector<DBus::Struct<std::string, uint32_t>> busPairs(
    const std::vector<std::pair<std::string, uint32_t>>& pairs) {
    std::vector<DBus::Struct<std::string, uint32_t>> result;
    result.reserve(pairs.size());
    for (const auto& pair : pairs) {
        auto& entry = result.emplace_back(DBus::Struct<std::string, uint32_t>{});
        std::tie(entry._1, entry._2) = pair;
    }
    return result;
}

} // namespace Vard
