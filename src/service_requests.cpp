// The session requests of the front ends: they gather the parameters, start the session and complete it for the
// connection.
#include "dbus_service.h"

#include "bus_boundary.h"
#include "pam_service.h"
#include "utils.h"

#include <limits>

namespace Vard {

namespace {

constexpr int requestFailed = -1;

/// Wipes a password that the bus library made for this one call, however the call ends. The library's variable is no
/// constant; it only hands it over as one.
class PasswordGuard : Utils::WipeGuard<std::string> {
public:
    explicit PasswordGuard(const std::string& password) : WipeGuard(const_cast<std::string&>(password)) {} // NOLINT
};

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

void DBusService::admit(const SessionPtr& session, const std::string& password, const std::string& domain,
                        bool ntlmv2) {
    {
        const std::scoped_lock lock(table_.mutex());
        session->domain = domain;
    }
    vardCreateNTLMhashFile(session, password, ntlmv2);
    emitSignal([&] { signalProxyAllowConnection(session->sid, session->uid); });
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
    admit(session, pass, domain, false);
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
    const auto session = startSession(request);
    if (!session) {
        return requestFailed;
    }
    applySecurity(*session, json);
    admit(session, password, json.getString("domain"), json.getBoolean("use:ntlmv2"));
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

void DBusService::applySecurity(Session& session, const JsonConfig& json) {
    const std::scoped_lock lock(table_.mutex());
    session.nla = json.getBoolean("sec:nla", session.nla);
    session.tls = json.getBoolean("sec:tls", session.tls);
    session.rdp = json.getBoolean("sec:rdp", session.rdp);
    session.auth = json.getBoolean("sec:auth", session.auth);
}

bool DBusService::vardLogin(const std::string& user, const std::string& domain, const std::string& pass) {
    const PasswordGuard guard(pass);
    notice("%s: user: %s, domain: `%s'", "vardLogin", user.c_str(), domain.c_str());
    if (!vardTestConnect(user, domain, pass)) {
        return false;
    }
    const auto session = startSession(desktopRequest(user, pass));
    if (!session) {
        return false;
    }
    admit(session, pass, domain, false);
    return session->sid != 0;
}

int32_t DBusService::busProgramRequest(const std::string& user, const std::string& domain, const std::string& pass,
                                       const uint16_t& width, const uint16_t& height, const std::string& prog) {
    static_cast<void>(user);
    static_cast<void>(domain);
    static_cast<void>(pass);
    static_cast<void>(width);
    static_cast<void>(height);
    static_cast<void>(prog);
    throw not_supported("busProgramRequest");
}

std::vector<std::string> DBusService::vardProgramList() { throw not_supported("vardProgramList"); }

bool DBusService::vardCheckAuthUser(const std::string& user, const std::string& pass, const std::string& service) {
    static_cast<void>(user);
    static_cast<void>(pass);
    static_cast<void>(service);
    throw not_supported("vardCheckAuthUser");
}

// The account comes before the password: an unusable account is refused without asking for one.
bool DBusService::checkCredentials(const std::string& service, const std::string& user, const std::string& pass) {
    PamService pam(service, user, pass);
    return pam.validateAccount() && pam.checkAuthenticate();
}

} // namespace Vard
