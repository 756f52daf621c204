// Who may call what, for a refused caller's message.
#include "access.h"

#include <algorithm>
#include <array>

namespace Vardctl {

namespace {

constexpr std::array<std::string_view, 3> rootMethods{"vardCheckAuthUser", "busServiceShutdown", "busSetDebugLevel"};
constexpr std::array<std::string_view, 5> monitorMethods{"vardStatus", "vardTest", "vardLoadAverage",
                                                         "zabbixSessionsTotal", "zabbixSessionsOnline"};

} // namespace

std::string_view requiredGroup(std::string_view method) {
    if (std::ranges::find(rootMethods, method) != rootMethods.end()) {
        return "";
    }
    return std::ranges::find(monitorMethods, method) != monitorMethods.end() ? "vard-monitor" : "vard-frontend";
}

std::string deniedMessage(std::string_view method) {
    const std::string start = "access denied; this may be done by root";
    const std::string group(requiredGroup(method));
    if (group.empty()) {
        return start + " alone";
    }
    return start + " and by members of the group " + group + (group == "vard-monitor" ? " or vard-frontend" : "");
}

} // namespace Vardctl
