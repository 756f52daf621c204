// The hash line by which transports check a user's password.
#include "hash_tool.h"

#include "hash_line.h"
#include "logger.h"
#include "look_as_user.h"
#include "secret.h"
#include "session_command.h"
#include "small_file.h"

#include <exception>
#include <system_error>

namespace Vard {

namespace {

constexpr const char* func = "vardCreateNTLMhashFile";

// What the tool has written is the user's file.
std::string readLine(const Session& session) {
    const auto read = [log = session.commandLog()] { return wholeFirstLine(Utils::readSmallFile(log)); };
    return callUserScope(session, read, session.users().tools).value_or("");
}

// Without the line nobody can connect: whoever reads the journal is to know why.
std::string makeLine(const Session& session, const std::string& domain, const std::string& password, bool ntlmv2,
                     const JsonConfig& settings) {
    auto args = hashToolArguments(session.username, domain, password, ntlmv2);
    const Utils::WipeGuard guard(args);
    ChildOptions options{session.commandLog()};
    options.secretArguments = true;
    const auto status = runSessionTool(session, func, settings.setting(Settings::hashTool), args, options);
    auto line = status == 0 ? readLine(session) : std::string{};
    if (line.empty()) {
        Syslog::error("%s: no hash line, user: %s, %s", func, session.username.c_str(),
                      status == 0 ? "the tool's output is not a whole line: is the home full?" : "the tool failed");
    }
    return line;
}

} // namespace

bool createHashLine(SessionTable& table, Session& session, const std::string& password, bool ntlmv2,
                    const JsonConfig& settings) {
    try {
        const std::string domain = table.lock().state(session).domain;
        auto line = makeLine(session, domain, password, ntlmv2, settings);
        if (line.empty()) {
            return false;
        }
        table.lock().state(session).ntlm.take(line);
        return true;
    } catch (const std::system_error& err) {
        Syslog::error("%s: system error: %s", func, err.what());
    } catch (const std::exception& err) {
        Syslog::error("%s: exception: %s", func, err.what());
    }
    return false;
}

} // namespace Vard
