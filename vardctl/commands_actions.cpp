// The subcommands that start, change and end sessions, and the service itself.
#include "commands.h"
#include "password.h"
#include "session_info.h"
#include "terminal_text.h"

#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>

namespace Vardctl {

namespace {

void printStarted(int32_t session, bool reachable, const Options& options) {
    Json::Value answer;
    answer["session"] = session;
    answer["reachable"] = reachable;
    std::cout << (options.json ? jsonLine(answer) : std::to_string(session) + "\n");
}

/// The size that was asked for, completed by another.
Size completed(Size size, const Size& other) {
    return {size.width != 0 ? size.width : other.width, size.height != 0 ? size.height : other.height};
}

// The service gives a session that is found the size of the request, and a client may be looking at it.
Size desktopSize(Service& service, const Options& options) {
    for (const auto& session : sessionsOf(service, options.target)) {
        if (!session["seamless:mode"].asBool() && !sizeText(session).empty()) {
            return completed(options.size, screenSize(sizeText(session)));
        }
    }
    return completed(options.size, Size());
}

int32_t requestDesktop(Service& service, const Options& options, const Password& password) {
    const auto [width, height] = desktopSize(service, options);
    auto answer = options.domain.empty()
                      ? service.act("busSessionRequest", "ssyqq", options.target.c_str(), password.text(),
                                    options.depth, width, height)
                      : service.act("busSessionDomainRequest", "sssyqq", options.target.c_str(), options.domain.c_str(),
                                    password.text(), options.depth, width, height);
    return answer.number();
}

// The question is not only for the answer: the service reads the list anew with it, and knows what was added since.
void requirePublished(Service& service, const std::string& program) {
    const auto programs = service.query("vardProgramList").texts();
    if (std::ranges::find(programs, program) == programs.end()) {
        throw Failure(ExitCode::failed, "not among the published programs: " + program);
    }
}

bool isUnknown(const std::string& user) {
    errno = 0; // not being found leaves it so, a database that does not answer sets it
    return ::getpwnam(user.c_str()) == nullptr && errno == 0;
}

/// The failure for a login that was refused; `guess` is what may be the reason.
Failure refused(const std::string& user, const std::string& guess = "") {
    const std::string start = "the service refused the login of " + user;
    if (isUnknown(user)) {
        return {ExitCode::failed, start + ": there is no such user"};
    }
    const char* const file = closedBy();
    std::string reason = file != nullptr ? std::string("the machine is closed for new sessions by ") + file : "";
    reason += (reason.empty() || guess.empty() ? "" : ", or ") + guess;
    return {ExitCode::failed, start + (reason.empty() ? "" : ": ") + reason + journalHint};
}

void checkPassword(Service& service, const Options& options, const Password& password) {
    if (!options.noCheck &&
        !service.act("vardTestConnect", "sss", options.target.c_str(), options.domain.c_str(), password.text())
             .flag()) {
        throw refused(options.target, "a wrong password, or an account that may not log in");
    }
}

// A session that runs is found again whatever has become of its user and his home.
std::string unreachable(Service& service, const Options& options, int32_t session) {
    const auto info = findSession(service, static_cast<uint32_t>(session));
    if (isUnknown(options.target)) {
        return harmless(options.target) + " is no user any more";
    }
    return info && (*info)["ntlm"].asString().empty()
               ? "nobody can connect to session " + std::to_string(session) +
                     ", it has no hash line: is the home missing or full?" + journalHint
               : "";
}

void requireStarted(Service& service, const Options& options, int32_t session) {
    if (session < 0) {
        throw refused(options.target);
    }
    const auto problem = unreachable(service, options, session);
    printStarted(session, problem.empty(), options);
    if (!problem.empty()) {
        std::cerr << "vardctl: warning: " << problem << '\n';
    }
}

} // namespace

void login(const Options& options) {
    Service service;
    service.query("vardSessions"); // a service that is not there, or for others, shows before a password is asked for
    const Password password(options.target);
    checkPassword(service, options, password);
    requireStarted(service, options, requestDesktop(service, options, password));
}

void runProgram(const Options& options) {
    Service service;
    requirePublished(service, options.program);
    const Password password(options.target);
    checkPassword(service, options, password);
    const auto size = completed(options.size, Size());
    const auto session = service
                             .act("busProgramRequest", "sssqqs", options.target.c_str(), options.domain.c_str(),
                                  password.text(), size.width, size.height, options.program.c_str())
                             .number();
    requireStarted(service, options, session);
}

void notify(const Options& options) {
    const auto id = options.session;
    Service service;
    if (!service.act("vardSendNotify", "ussy", id, options.header.c_str(), options.message.c_str(), options.urgency)
             .flag()) {
        throw noSession(id);
    }
}

// The setters do not say whether there is such a session, so it is looked for afterwards.
void setLimits(const Options& options) {
    const auto id = options.session;
    if (!options.duration && !options.inactivity) {
        throw Failure(ExitCode::usage, "--duration or --inactivity is needed");
    }
    Service service;
    if (options.duration) {
        service.act("vardSessionDurationLimit", "uu", id, *options.duration);
    }
    if (options.inactivity) {
        service.act("vardSessionInactivityLimit", "uu", id, *options.inactivity);
    }
    requireSession(service, id);
}

// The service takes the largest mode when it has none of the size, and the X server may refuse: the result is read
// back.
void resize(const Options& options) {
    const auto id = options.session;
    Service service;
    service.act("vardSessionGeometry", "uqq", id, options.size.width, options.size.height);
    const auto session = requireSession(service, id);
    const auto result = sizeText(session);
    if (result.empty()) {
        throw Failure(ExitCode::failed, "the session's X server does not answer");
    }
    if (result != options.size.text() && isUnknown(session["username"].asString())) {
        throw Failure(ExitCode::failed,
                      "the session's user is no user any more, and nothing can be run as him: end it "
                      "with vardctl shutdown " +
                          std::to_string(id));
    }
    if (result != options.size.text()) {
        throw Failure(ExitCode::failed,
                      "the session's X server has no mode " + options.size.text() + "; the size is now " + result);
    }
}

void disconnect(const Options& options) {
    const auto id = options.session;
    Service service;
    if (!service.act("vardDisconnect", "u", id).flag()) {
        requireSession(service, id);
        throw Failure(ExitCode::failed, "nobody is connected to session " + std::to_string(id));
    }
}

void shutdownSession(const Options& options) {
    const auto target = chooseTarget(options.target, options.forceUser);
    Service service;
    if (const auto* id = std::get_if<uint32_t>(&target)) {
        if (!service.act("vardSessionShutdown", "u", *id).flag()) {
            throw noSession(*id);
        }
    } else if (!service.act("busSessionShutdown", "s", options.target.c_str()).flag()) {
        throw Failure(ExitCode::failed, "no session of user: " + options.target);
    }
}

void setLogLevel(const Options& options) {
    Service service;
    service.act("busSetDebugLevel", "s", options.logLevel.c_str());
}

void stopService(const Options& /*options*/) {
    Service service;
    service.act("busServiceShutdown");
}

} // namespace Vardctl
