// The check of a user's name and password.
#pragma once

#include "json_config.h"

#include <string>

namespace Vard {

/// True when the PAM service of that name lets the account be used and takes the password. Blocks as long as PAM's
/// modules please. With `asHimself` the modules are told that the user himself asks. Throws pam_error when PAM cannot
/// be asked. Main thread.
bool checkCredentials(const std::string& service, const std::string& user, const std::string& password,
                      bool asHimself = false);
/// The same with the service that the settings name; false, after an error line, when PAM cannot be asked. The domain
/// is only logged.
bool testConnect(const JsonConfig& settings, const std::string& user, const std::string& domain,
                 const std::string& password);

} // namespace Vard
