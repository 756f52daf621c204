// The subcommands that start, change and end sessions, and the service itself.
#include "commands.h"
#include "password.h"
#include "session_info.h"

#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>

namespace Vardctl {

namespace {

constexpr const char* journalHint = "; the reason is in the journal: journalctl -t vard_service";

void printStarted(int32_t session, const Options& options) {
    Json::Value answer;
    answer["session"] = session;
    std::cout << (options.json ? jsonLine(answer) : std::to_string(session) + "\n");
}

int32_t requestDesktop(Service& service, const Options& options, const Password& password) {
    const auto& [width, height] = options.size;
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

/// The failure for a login that the service refused.
Failure refused(const std::string& user) {
    const std::string start = "the service refused the login of " + user;
    errno = 0; // not being found leaves it so, a database that does not answer sets it
    const bool unknown = ::getpwnam(user.c_str()) == nullptr && errno == 0;
    return {ExitCode::failed, start + (unknown ? ": there is no such user" : journalHint)};
}

} // namespace

void login(const Options& options) {
    Service service;
    service.query("vardSessions"); // a service that is not there, or for others, shows before a password is asked for
    const auto session = requestDesktop(service, options, Password(options.target));
    if (session < 0) {
        throw refused(options.target);
    }
    printStarted(session, options);
}

void runProgram(const Options& options) {
    Service service;
    requirePublished(service, options.program);
    const Password password(options.target);
    const auto session = service
                             .act("busProgramRequest", "sssqqs", options.target.c_str(), options.domain.c_str(),
                                  password.text(), options.size.width, options.size.height, options.program.c_str())
                             .number();
    if (session < 0) {
        throw refused(options.target);
    }
    printStarted(session, options);
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
    const auto result = sizeText(requireSession(service, id));
    if (result.empty()) {
        throw Failure(ExitCode::failed, "the session's X server does not answer");
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
