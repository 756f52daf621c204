// What a child needs to become a user.
#include "identity.h"

#include "exceptions.h"
#include "logger.h"
#include "parsec.h"
#include "user_database.h"

namespace Vard {

Identity Identity::of(const std::string& user) {
    const UserInfo info = Utils::getUserInfo(user);
    if (!info.known()) {
        Syslog::error("%s: user not found: `%s'", "Identity", user.c_str());
        throw vard_error("Identity");
    }
    Identity identity{info.user, info.home, info.shell, info.uid, info.gid, {}, {}};
    if (Parsec::available()) {
        // Without a level of his own the user gets the lowest, never the service's.
        identity.integrity = Parsec::userIntegrity(info.uid).value_or(0);
    }
    if (user != "root") {
        identity.groups = Utils::getUserGroups(user, info.gid);
    }
    return identity;
}

std::list<std::string> Identity::environment() const {
    return {"USER=" + user,   "LOGNAME=" + user, "HOME=" + home,
            "SHELL=" + shell, "TERM=linux",      "PATH=/usr/local/bin:/usr/bin:/bin:/usr/local/games:/usr/games"};
}

} // namespace Vard
