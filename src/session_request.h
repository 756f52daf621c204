// A session request as a front end sends it: one JSON object.
#pragma once

#include "display.h"
#include "json_config.h"
#include "secret.h"
#include "session.h"

#include <optional>
#include <string>

namespace Vard {

/// The security modes that a request names; those that it does not stay as they are in the session.
struct SecurityFlags {
    std::optional<bool> nla;
    std::optional<bool> tls;
    std::optional<bool> rdp;
    std::optional<bool> auth;

    /// Sets those that are named.
    void applyTo(SessionState& state) const;
};

/// What a started session is completed with for its connection.
struct Admission {
    const std::string& password;
    const std::string& domain;
    bool ntlmv2 = false;
    SecurityFlags security{};
};

/// What a front end asks for. Its password is wiped when it goes.
struct SessionRequest {
    /// Reads whose session it is to be.
    explicit SessionRequest(const JsonConfig& params);

    /// Reads what is to be started. False, after an error line under "vardSessionRequest", when something is missing or
    /// out of its range; throws jsoncpp's exception when a member is of a wrong type.
    bool readDesktop(const JsonConfig& params);
    /// Reads the rest, which is for the connection; throws as before.
    void readConnection(const JsonConfig& params);

    const std::string user;
    std::string password;
    const Utils::WipeGuard<std::string> passwordGuard{password};
    DisplayFormat format{};
    std::optional<std::string> program{}; ///< the name of a published one; none: the desktop
    SecurityFlags security{};
    std::string domain{};
    bool ntlmv2 = false;

private:
    bool readFormat(const JsonConfig& params);
};

} // namespace Vard
