// The check of a user's name and password.
#include "credentials.h"

#include "logger.h"
#include "pam_service.h"

#include <exception>

namespace Vard {

// The account comes before the password: an unusable account is refused without asking for one.
bool checkCredentials(const std::string& service, const std::string& user, const std::string& password,
                      bool asHimself) {
    PamService pam(service, user, password);
    if (asHimself) {
        pam.nameRequester();
    }
    return pam.validateAccount() && pam.checkAuthenticate();
}

bool testConnect(const JsonConfig& settings, const std::string& user, const std::string& domain,
                 const std::string& password) {
    Syslog::info("%s: user: %s, domain: `%s'", "vardTestConnect", user.c_str(), domain.c_str());
    try {
        return checkCredentials(settings.setting(Settings::pamService), user, password, true);
    } catch (const std::exception& err) {
        Syslog::error("%s: exception: %s", "vardTestConnect", err.what());
        return false;
    }
}

} // namespace Vard
