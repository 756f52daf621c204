// Alive, version, credentials test, stop, log level, audit records.
#include "dbus_service.h"

#include "bus_boundary.h"
#include "pam_service.h"
#include "utils.h"

#include <algorithm>
#include <fstream>
#include <thread>

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
    const PasswordGuard guard(pass);
    return testConnect(user, domain, pass);
}

bool DBusService::testConnect(const std::string& user, const std::string& domain, const std::string& pass) {
    info("%s: user: %s, domain: `%s'", "vardTestConnect", user.c_str(), domain.c_str());
    try {
        return checkCredentials(config()->settingString("pam:service", "vard"), user, pass);
    } catch (const std::exception& err) {
        error("%s: exception: %s", "vardTestConnect", err.what());
        return false;
    }
}

bool DBusService::vardCheckAuthUser(const std::string& user, const std::string& pass, const std::string& service) {
    const PasswordGuard guard(pass);
    info("%s: user: %s, service: %s", "vardCheckAuthUser", user.c_str(), service.c_str());
    return checkCredentials(service, user, pass);
}

// The account comes before the password: an unusable account is refused without asking for one.
bool DBusService::checkCredentials(const std::string& service, const std::string& user, const std::string& pass) {
    PamService pam(service, user, pass);
    return pam.validateAccount() && pam.checkAuthenticate();
}

double DBusService::vardLoadAverage() {
    double oneMinute = 0;
    double fiveMinutes = 0;
    double fifteenMinutes = 0;
    std::ifstream file("/proc/loadavg");
    if (!(file >> oneMinute >> fiveMinutes >> fifteenMinutes) || fiveMinutes <= 0) {
        return 0;
    }
    return fiveMinutes * 100 / std::max(std::thread::hardware_concurrency(), 1U);
}

uint32_t DBusService::zabbixSessionsTotal() {
    return table_.count([](const Session& session) { return session.pid2.pid() > 0; });
}

uint32_t DBusService::zabbixSessionsOnline() {
    return table_.count([](const Session& session) { return session.pid3.pid() > 0; });
}

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
