// Alive, version, credentials, stop, log level, figures for monitoring.
#include "credentials.h"
#include "dbus_service.h"
#include "load_average.h"
#include "secret.h"
#include "session_views.h"
#include "stop_request.h"
#include "version.h"

namespace Vard {

void DBusService::busServiceShutdown() {
    notice("%s: process is initiated", "busServiceShutdown");
    requestStop();
}

void DBusService::busSetDebugLevel(Text value) {
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

bool DBusService::vardTestConnect(Text user, Text domain, Text pass) {
    const Utils::PasswordGuard guard(pass);
    return testConnect(*config_.settings(), user, domain, pass);
}

bool DBusService::vardCheckAuthUser(Text user, Text pass, Text service) {
    const Utils::PasswordGuard guard(pass);
    info("%s: user: %s, service: %s", "vardCheckAuthUser", user.c_str(), service.c_str());
    return checkCredentials(service, user, pass);
}

double DBusService::vardLoadAverage() { return loadAverage(); }

uint32_t DBusService::zabbixSessionsTotal() { return countSessions(table_, &SessionState::pid2); }

uint32_t DBusService::zabbixSessionsOnline() { return countSessions(table_, &SessionState::pid3); }

} // namespace Vard
