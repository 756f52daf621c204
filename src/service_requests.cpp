// The session requests of the front ends: they gather the parameters, start the session and complete it for the
// connection.
#include "credentials.h"
#include "dbus_service.h"
#include "hash_tool.h"
#include "secret.h"
#include "text.h"

namespace Vard {

namespace {

constexpr int32_t requestFailed = -1;
constexpr size_t longestDomain = 255; // bytes, as long as a domain name can be

// Puts the size and the published program that are asked for in the desktop's stead.
bool fill(StartRequest& request, const SessionRequest& asked, const ProgramList& programs) {
    request.format = asked.format;
    if (!asked.program) {
        return true;
    }
    const Program* program = programs.find(*asked.program);
    if (program == nullptr) {
        Syslog::error("%s: program not registered, name: %s", "vardSessionRequest", asked.program->c_str());
        return false;
    }
    request.program = program->path;
    request.args = program->args;
    return true;
}

// The program's name, not its path, is compared with the configured desktop.
bool isSeamless(const std::string& name, const JsonConfig& settings) {
    return settings.hasValue(Settings::sessionPath.key) && name != settings.setting(Settings::sessionPath);
}

} // namespace

DBusService::SessionPtr DBusService::startSession(const StartRequest& request) {
    request_ = starter_.start(request);
    return request_.session();
}

StartRequest DBusService::desktopRequest(Text user, Text password, const DisplayFormat& format) const {
    const auto settings = config_.settings();
    return {user, password, format, settings->setting(Settings::sessionPath), settings->setting(Settings::sessionArgs)};
}

// The session's domain and its hash line; then the proxy may let the client in.
int32_t DBusService::admit(const SessionPtr& session, const Admission& admission) {
    complete(session, admission);
    signals_.proxyAllowConnection(session->sid, session->uid);
    return static_cast<int32_t>(session->sid);
}

void DBusService::complete(const SessionPtr& session, const Admission& admission) {
    {
        const auto sessions = table_.lock();
        admission.security.applyTo(sessions.state(*session));
        sessions.state(*session).domain = bounded(admission.domain, longestDomain);
    }
    vardCreateNTLMhashFile(session, admission.password, admission.ntlmv2);
}

int32_t DBusService::requestDesktop(const StartRequest& request, Text domain) {
    const auto session = startSession(request);
    return session ? admit(session, {request.password, domain}) : requestFailed;
}

int32_t DBusService::busSessionRequest(Text user, Text pass, const uint8_t& depth, Pixels width, Pixels height) {
    const Utils::PasswordGuard guard(pass);
    notice("%s: user: %s, depth: %u, width: %u, height: %u", "busSessionRequest", user.c_str(), depth, width, height);
    return requestDesktop(desktopRequest(user, pass, {depth, width, height}), "");
}

int32_t DBusService::busSessionDomainRequest(Text user, Text domain, Text pass, const uint8_t& depth, Pixels width,
                                             Pixels height) {
    const Utils::PasswordGuard guard(pass);
    notice("%s: user: %s, domain: `%s', depth: %u, width: %u, height: %u", "busSessionDomainRequest", user.c_str(),
           domain.c_str(), depth, width, height);
    return requestDesktop(desktopRequest(user, pass, {depth, width, height}), domain);
}

bool DBusService::vardLogin(Text user, Text domain, Text pass) {
    const Utils::PasswordGuard guard(pass);
    notice("%s: user: %s, domain: `%s'", "vardLogin", user.c_str(), domain.c_str());
    return testConnect(*config_.settings(), user, domain, pass) &&
           requestDesktop(desktopRequest(user, pass, {}), domain) > 0;
}

int32_t DBusService::vardSessionRequest(Text params) {
    const Utils::PasswordGuard guard(params);
    notice("%s, json: `%s'", "vardSessionRequest", params.c_str());
    const JsonConfigString json(params);
    SessionRequest asked(json);
    auto request = desktopRequest(asked.user, asked.password, {});
    if (!asked.readDesktop(json) || !fill(request, asked, *config_.programs())) {
        return requestFailed;
    }
    asked.readConnection(json); // before the start: an error must not leave a session that nobody was told of
    const auto session = startSession(request);
    if (!session) {
        return requestFailed;
    }
    const int32_t id = admit(session, {asked.password, asked.domain, asked.ntlmv2, asked.security});
    if (asked.program) {
        sessionCorrectMainWindowSize(session);
    }
    return id;
}

int32_t DBusService::busProgramRequest(Text user, Text domain, Text pass, Pixels width, Pixels height, Text prog) {
    const Utils::PasswordGuard guard(pass);
    notice("%s: user: %s, domain: `%s', width: %u, height: %u, program name: `%s'", "busProgramRequest", user.c_str(),
           domain.c_str(), width, height, prog.c_str());
    const auto list = config_.programs();
    const Program* program = list->find(prog);
    if (program == nullptr) {
        error("%s: program not registered, name: `%s'", "busProgramRequest", prog.c_str());
        return requestFailed;
    }
    const auto session = startSession(StartRequest{user, pass, {24, width, height}, program->path, program->args});
    if (!session) {
        return requestFailed;
    }
    complete(session, {pass, domain});
    sessionCorrectMainWindowSize(session);
    signals_.proxyAllowConnection(session->sid, session->uid);
    table_.lock().state(*session).seamless = isSeamless(prog, *config_.settings());
    return static_cast<int32_t>(session->sid);
}

std::vector<std::string> DBusService::vardProgramList() {
    config_.reloadPrograms();
    return config_.programs()->getNames();
}

// The steps of a session's start. A start goes from room to room by itself; what nobody here calls is required.

DBusService::SessionPtr DBusService::startSession(Text user, Text password, const unsigned char& depth,
                                                  const unsigned short& width, const unsigned short& height,
                                                  Text sessionPath, const std::list<std::string>& sessionArgs) {
    return startSession(StartRequest{user, password, {depth, width, height}, sessionPath, sessionArgs});
}

std::pair<XAuthorityFile, std::vector<uint8_t>> DBusService::createXauthFile(unsigned display, Text user) {
    return Vard::createXauthFile(directory_.path(), display, user, *config_.settings());
}

pid_t DBusService::runXvfbDisplay(unsigned display, unsigned char depth, unsigned short width, unsigned short height,
                                  Text user, const std::filesystem::path& authfile) {
    return Vard::runXvfbDisplay(display, {depth, width, height}, user, authfile, *config_.settings(),
                                displays_.isolated());
}

ProcessHandle DBusService::saveWaitPidBackground(pid_t pid) { return children_.watch(tasks_, pid); }

void DBusService::sessionMountProfile(Session* session) {
    Vard::sessionMountProfile(session, profiles_, *config_.settings());
}

bool DBusService::vardCreateNTLMhashFile(const SessionPtr& session, Text password, bool ntlmv2) {
    return createHashLine(table_, *session, password, ntlmv2, *config_.settings());
}

} // namespace Vard
