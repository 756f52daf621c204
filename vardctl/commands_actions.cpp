// The subcommands that start, change and end sessions, and the service itself.
#include "arguments.h"
#include "commands.h"
#include "password.h"
#include "session_info.h"

#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <limits>

namespace Vardctl {

namespace {

constexpr const char* journalHint = "; the reason is in the journal: journalctl -t vard_service";

Size requestedSize(const Options& options) { return screenSize(options.width + "x" + options.height); }

uint8_t smallNumber(const std::string& word, uint8_t least, const std::string& what) {
    return static_cast<uint8_t>(number(word, least, std::numeric_limits<uint8_t>::max(), what));
}

void printStarted(int32_t session, const Options& options) {
    Json::Value answer;
    answer["session"] = session;
    std::cout << (options.json ? jsonLine(answer) : std::to_string(session) + "\n");
}

int32_t requestDesktop(Service& service, const Options& options, const Password& password) {
    const auto size = requestedSize(options);
    const auto depth = smallNumber(options.depth, 1, "depth");
    if (options.domain.empty()) {
        return service
            .act("busSessionRequest", "ssyqq", options.target.c_str(), password.text(), depth, size.width, size.height)
            .number();
    }
    return service
        .act("busSessionDomainRequest", "sssyqq", options.target.c_str(), options.domain.c_str(), password.text(),
             depth, size.width, size.height)
        .number();
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

std::optional<uint32_t> limitSeconds(const std::optional<std::string>& word, const std::string& what) {
    return word ? std::optional(number(*word, 0, std::numeric_limits<uint32_t>::max(), what)) : std::nullopt;
}

} // namespace

void login(const Options& options) {
    userName(options.target); // wrong usage shows before a password is asked for
    requestedSize(options);
    smallNumber(options.depth, 1, "depth");
    Service service;
    service.query("vardSessions"); // and so does a service that is not there, or for others
    const auto session = requestDesktop(service, options, Password(options.target));
    if (session < 0) {
        throw refused(options.target);
    }
    printStarted(session, options);
}

void runProgram(const Options& options) {
    userName(options.target);
    const auto size = requestedSize(options);
    Service service;
    requirePublished(service, options.program);
    const Password password(options.target);
    const auto session = service
                             .act("busProgramRequest", "sssqqs", options.target.c_str(), options.domain.c_str(),
                                  password.text(), size.width, size.height, options.program.c_str())
                             .number();
    if (session < 0) {
        throw refused(options.target);
    }
    printStarted(session, options);
}

void notify(const Options& options) {
    const auto id = sessionId(options.target);
    const auto urgency = smallNumber(options.urgency, 0, "level");
    Service service;
    if (!service.act("vardSendNotify", "ussy", id, options.header.c_str(), options.message.c_str(), urgency).flag()) {
        throw noSession(id);
    }
}

// The setters do not say whether there is such a session, so it is looked for afterwards.
void setLimits(const Options& options) {
    const auto id = sessionId(options.target);
    const auto duration = limitSeconds(options.duration, "duration");
    const auto inactivity = limitSeconds(options.inactivity, "inactivity");
    if (!duration && !inactivity) {
        throw Failure(ExitCode::usage, "--duration or --inactivity is needed");
    }
    Service service;
    if (duration) {
        service.act("vardSessionDurationLimit", "uu", id, *duration);
    }
    if (inactivity) {
        service.act("vardSessionInactivityLimit", "uu", id, *inactivity);
    }
    requireSession(service, id);
}

// The service takes the largest mode when it has none of the size, and the X server may refuse: the result is read
// back.
void resize(const Options& options) {
    const auto id = sessionId(options.target);
    const auto size = screenSize(options.size);
    Service service;
    service.act("vardSessionGeometry", "uqq", id, size.width, size.height);
    const auto result = sizeText(requireSession(service, id));
    if (result.empty()) {
        throw Failure(ExitCode::failed, "the session's X server does not answer");
    }
    if (result != options.size) {
        throw Failure(ExitCode::failed,
                      "the session's X server has no mode " + options.size + "; the size is now " + result);
    }
}

void disconnect(const Options& options) {
    const auto id = sessionId(options.target);
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
    const auto level = logLevel(options.logLevel);
    Service service;
    service.act("busSetDebugLevel", "s", level.c_str());
}

void stopService(const Options& /*options*/) {
    Service service;
    service.act("busServiceShutdown");
}

} // namespace Vardctl
