// A session request as a front end sends it: one JSON object.
#include "session_request.h"

#include "logger.h"

#include <limits>

namespace Vard {

namespace {

constexpr const char* func = "vardSessionRequest";

/// Reads a number of a request into its type's range; logs and answers false when it lies outside.
template <typename Number>
bool readRanged(const JsonConfig& params, const char* key, Number& value) {
    const int number = params.getInteger(key, value);
    if (number < 0 || number > std::numeric_limits<Number>::max()) {
        Syslog::error("%s: params failed, out of range: `%s', value: %d", func, key, number);
        return false;
    }
    value = static_cast<Number>(number);
    return true;
}

/// A flag of a request; none when it is absent. Throws jsoncpp's exception when it is no flag.
std::optional<bool> readFlag(const JsonConfig& params, const char* key) {
    return params.hasValue(key) ? std::optional(params.getBoolean(key)) : std::nullopt;
}

bool isThere(const std::string& value, const char* key) {
    if (value.empty()) {
        Syslog::error("%s: params failed, not found: `%s'", func, key);
    }
    return !value.empty();
}

} // namespace

void SecurityFlags::applyTo(SessionState& state) const {
    state.nla = nla.value_or(state.nla);
    state.tls = tls.value_or(state.tls);
    state.rdp = rdp.value_or(state.rdp);
    state.auth = auth.value_or(state.auth);
}

SessionRequest::SessionRequest(const JsonConfig& params)
    : user(params.getString("username")), password(params.getString("password")) {}

bool SessionRequest::readFormat(const JsonConfig& params) {
    return readRanged(params, "depth", format.depth) && readRanged(params, "width", format.width) &&
           readRanged(params, "height", format.height);
}

bool SessionRequest::readDesktop(const JsonConfig& params) {
    if (!isThere(user, "username") || !isThere(password, "password") || !readFormat(params)) {
        return false;
    }
    if (params.hasValue("program")) {
        program = params.getString("program");
    }
    return true;
}

void SessionRequest::readConnection(const JsonConfig& params) {
    security = {readFlag(params, "sec:nla"), readFlag(params, "sec:tls"), readFlag(params, "sec:rdp"),
                readFlag(params, "sec:auth")};
    domain = params.getString("domain");
    ntlmv2 = params.getBoolean("use:ntlmv2");
}

} // namespace Vard
