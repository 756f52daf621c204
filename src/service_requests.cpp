// The session requests of the front ends: they gather the parameters, start the session and complete it for the
// connection.
#include "dbus_service.h"

#include "bus_boundary.h"
#include "caller_text.h"

#include <limits>
#include <optional>

namespace Vard {

namespace {

constexpr int requestFailed = -1;
constexpr size_t longestDomain = 255; // bytes, as long as a domain name can be

/// Reads a number of a request into its type's range; logs and answers false when it lies outside.
template <typename Number>
bool readRanged(const JsonConfig& params, const char* key, Number& value) {
    const int number = params.getInteger(key, value);
    if (number < 0 || number > std::numeric_limits<Number>::max()) {
        Syslog::error("%s: params failed, out of range: `%s', value: %d", "vardSessionRequest", key, number);
        return false;
    }
    value = static_cast<Number>(number);
    return true;
}

/// A flag of a request; none when it is absent. Throws jsoncpp's exception when it is no flag.
std::optional<bool> readFlag(const JsonConfig& params, const char* key) {
    return params.hasValue(key) ? std::optional(params.getBoolean(key)) : std::nullopt;
}

SecurityFlags readSecurity(const JsonConfig& params) {
    return {readFlag(params, "sec:nla"), readFlag(params, "sec:tls"), readFlag(params, "sec:rdp"),
            readFlag(params, "sec:auth")};
}

bool requireText(const std::string& value, const char* key) {
    if (value.empty()) {
        Syslog::error("%s: params failed, not found: `%s'", "vardSessionRequest", key);
    }
    return !value.empty();
}

} // namespace

StartRequest DBusService::desktopRequest(const std::string& user, const std::string& password) const {
    const auto settings = config();
    StartRequest request{user, password};
    request.program = settings->settingString("session:path", "/usr/bin/xterm");
    request.args = settings->settingStringList("session:args");
    return request;
}

void DBusService::complete(const SessionPtr& session, const std::string& password, const std::string& domain,
                           bool ntlmv2) {
    {
        const std::scoped_lock lock(table_.mutex());
        session->domain = bounded(domain, longestDomain);
    }
    vardCreateNTLMhashFile(session, password, ntlmv2);
}

void DBusService::allowConnection(const Session& session) {
    emitSignal([&] { signalProxyAllowConnection(session.sid, session.uid); });
}

int32_t DBusService::requestDesktop(const std::string& user, const std::string& domain, const std::string& pass,
                                    unsigned char depth, unsigned short width, unsigned short height) {
    auto request = desktopRequest(user, pass);
    request.depth = depth;
    request.width = width;
    request.height = height;
    const auto session = startSession(request);
    if (!session) {
        return requestFailed;
    }
    complete(session, pass, domain, false);
    allowConnection(*session);
    return static_cast<int32_t>(session->sid);
}

int32_t DBusService::busSessionRequest(const std::string& user, const std::string& pass, const uint8_t& depth,
                                       const uint16_t& width, const uint16_t& height) {
    const PasswordGuard guard(pass);
    notice("%s: user: %s, depth: %u, width: %u, height: %u", "busSessionRequest", user.c_str(), depth, width, height);
    return requestDesktop(user, "", pass, depth, width, height);
}

int32_t DBusService::busSessionDomainRequest(const std::string& user, const std::string& domain,
                                             const std::string& pass, const uint8_t& depth, const uint16_t& width,
                                             const uint16_t& height) {
    const PasswordGuard guard(pass);
    notice("%s: user: %s, domain: `%s', depth: %u, width: %u, height: %u", "busSessionDomainRequest", user.c_str(),
           domain.c_str(), depth, width, height);
    return requestDesktop(user, domain, pass, depth, width, height);
}

int32_t DBusService::vardSessionRequest(const std::string& params) {
    const PasswordGuard guard(params);
    notice("%s, json: `%s'", "vardSessionRequest", params.c_str());
    const JsonConfigString json(params);
    const std::string user = json.getString("username");
    std::string password = json.getString("password");
    const PasswordGuard passwordGuard(password);
    if (!requireText(user, "username") || !requireText(password, "password")) {
        return requestFailed;
    }
    auto request = desktopRequest(user, password);
    if (!readRanged(json, "depth", request.depth) || !readRanged(json, "width", request.width) ||
        !readRanged(json, "height", request.height)) {
        return requestFailed;
    }
    const bool wantsProgram = json.hasValue("program");
    if (wantsProgram && !chooseProgram(json.getString("program"), request)) {
        return requestFailed;
    }
    // All members are read before the start: an error must not leave a session behind that nobody was told of.
    const SecurityFlags security = readSecurity(json);
    const std::string domain = json.getString("domain");
    const bool ntlmv2 = json.getBoolean("use:ntlmv2");
    const auto session = startSession(request);
    if (!session) {
        return requestFailed;
    }
    applySecurity(*session, security);
    complete(session, password, domain, ntlmv2);
    allowConnection(*session);
    if (wantsProgram) {
        sessionCorrectMainWindowSize(session);
    }
    return static_cast<int32_t>(session->sid);
}

bool DBusService::chooseProgram(const std::string& name, StartRequest& request) const {
    const auto list = programs();
    const Program* program = list->find(name);
    if (program == nullptr) {
        error("%s: program not registered, name: %s", "vardSessionRequest", name.c_str());
        return false;
    }
    request.program = program->path;
    request.args = program->args;
    return true;
}

void DBusService::applySecurity(Session& session, const SecurityFlags& flags) {
    const std::scoped_lock lock(table_.mutex());
    session.nla = flags.nla.value_or(session.nla);
    session.tls = flags.tls.value_or(session.tls);
    session.rdp = flags.rdp.value_or(session.rdp);
    session.auth = flags.auth.value_or(session.auth);
}

bool DBusService::vardLogin(const std::string& user, const std::string& domain, const std::string& pass) {
    const PasswordGuard guard(pass);
    notice("%s: user: %s, domain: `%s'", "vardLogin", user.c_str(), domain.c_str());
    if (!testConnect(user, domain, pass)) {
        return false;
    }
    const auto session = startSession(desktopRequest(user, pass));
    if (!session) {
        return false;
    }
    complete(session, pass, domain, false);
    allowConnection(*session);
    return session->sid != 0;
}

int32_t DBusService::busProgramRequest(const std::string& user, const std::string& domain, const std::string& pass,
                                       const uint16_t& width, const uint16_t& height, const std::string& prog) {
    const PasswordGuard guard(pass);
    notice("%s: user: %s, domain: `%s', width: %u, height: %u, program name: `%s'", "busProgramRequest", user.c_str(),
           domain.c_str(), width, height, prog.c_str());
    const auto list = programs();
    const Program* program = list->find(prog);
    if (program == nullptr) {
        error("%s: program not registered, name: `%s'", "busProgramRequest", prog.c_str());
        return requestFailed;
    }
    const auto session = startSession(StartRequest{user, pass, 24, width, height, program->path, program->args});
    if (!session) {
        return requestFailed;
    }
    complete(session, pass, domain, false);
    sessionCorrectMainWindowSize(session);
    allowConnection(*session);
    markSeamless(*session, prog);
    return static_cast<int32_t>(session->sid);
}

// The program's name, not its path, is compared with the configured desktop.
void DBusService::markSeamless(Session& session, const std::string& name) {
    const auto settings = config();
    const bool seamless =
        settings->hasValue("session:path") && name != settings->settingString("session:path", "/usr/bin/xterm");
    const std::scoped_lock lock(table_.mutex());
    session.seamless = seamless;
}

std::vector<std::string> DBusService::vardProgramList() {
    reloadPrograms(*config());
    return programs()->getNames();
}

} // namespace Vard
