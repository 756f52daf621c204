// The service as the command calls it.
#include "service.h"

#include "interface_table.h"

#include <unistd.h>

#include <algorithm>
#include <array>

namespace Vardctl {

namespace {

constexpr std::array<const char*, 4> absent{
    "org.freedesktop.DBus.Error.ServiceUnknown", "org.freedesktop.DBus.Error.NameHasNoOwner",
    "org.freedesktop.DBus.Error.Disconnected", "org.freedesktop.DBus.Error.NoServer"};
// The bus says the first when the service goes away in the middle of a call, the library the others.
constexpr std::array<const char*, 3> silent{"org.freedesktop.DBus.Error.NoReply", "org.freedesktop.DBus.Error.Timeout",
                                            "System.Error.ETIMEDOUT"};

std::string deniedMessage(const std::string& method) {
    const std::string start = "access denied; this may be done by root";
    const std::string group(Vard::InterfaceTable::method(method).callers);
    if (group == "root") {
        return start + " alone";
    }
    return start + " and by members of the group " + group + (group == "vard-monitor" ? " or vard-frontend" : "");
}

} // namespace

const char* closedBy() {
    for (const char* file : closingFiles) {
        if (::access(file, F_OK) == 0) {
            return file;
        }
    }
    return nullptr;
}

Failure busFailure(const BusClient::Error& error, const std::string& command) {
    const auto isOneOf = [&](const auto& names) { return std::ranges::find(names, error.name()) != names.end(); };
    if (error.name() == BusClient::badArgument) {
        return {ExitCode::usage, error.what()};
    }
    if (error.name() == BusClient::noBus) {
        return {ExitCode::notRunning, error.what()};
    }
    if (error.name() == "org.freedesktop.DBus.Error.AccessDenied") {
        return {ExitCode::denied, command + ": " + deniedMessage(error.method())};
    }
    if (isOneOf(absent)) {
        return {ExitCode::notRunning,
                std::string("the service is not running: ") + BusClient::serviceName + " is not on the bus"};
    }
    if (isOneOf(silent)) {
        return {ExitCode::notRunning, "the service did not answer " + error.method()};
    }
    return {ExitCode::failed,
            (error.method().empty() ? "" : error.method() + " failed: ") + error.what() + journalHint};
}

} // namespace Vardctl
