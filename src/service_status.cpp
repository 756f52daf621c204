// Alive, version, credentials test, stop, log level, audit records.
#include "dbus_service.h"

#include "bus_boundary.h"
#include "utils.h"

namespace Vard {

void DBusService::busServiceShutdown() {
    notice("%s: process is initiated", "busServiceShutdown");
    requestStop();
}

void DBusService::busSetDebugLevel(const std::string& value) {
    info("%s: level: %s", "busSetDebugLevel", value.c_str());
    setDebugLevel(value);
}

bool DBusService::vardStatus() {
    debug("%s", "vardStatus");
    return true;
}

std::string DBusService::vardTest() {
    info("%s send ping version success", "vardTest");
    return productVersion("SERVICE");
}

bool DBusService::vardTestConnect(const std::string& user, const std::string& domain, const std::string& pass) {
    info("%s: user: %s, domain: `%s'", "vardTestConnect", user.c_str(), domain.c_str());
    try {
        return checkCredentials(config()->settingString("pam:service", "vard"), user, pass);
    } catch (const std::exception& err) {
        error("%s: exception: %s", "vardTestConnect", err.what());
        return false;
    }
}

double DBusService::vardLoadAverage() { throw not_supported("vardLoadAverage"); }

uint32_t DBusService::zabbixSessionsTotal() { throw not_supported("zabbixSessionsTotal"); }

uint32_t DBusService::zabbixSessionsOnline() { throw not_supported("zabbixSessionsOnline"); }

void DBusService::auditUserMessage(const unsigned& display, const char* address, int type, std::string_view operation,
                                   std::string_view user, bool result) {
    auditLog_.write(display, address, type, operation, user, result);
}

void DBusService::emitSignal(const std::function<void()>& emit) noexcept {
    if (!busAlive_) {
        return; // the library would keep every signal in memory for a bus that is not there
    }
    try {
        emit();
    } catch (const std::exception& err) {
        error("%s: exception: %s", "emitSignal", err.what());
    }
    serviceDispatcher.wake();
}

} // namespace Vard
