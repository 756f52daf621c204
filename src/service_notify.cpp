// Notices to users.
#include "dbus_service.h"

#include "session_command.h"
#include "utils.h"

namespace Vard {

bool DBusService::vardSendNotify(const uint32_t& session, const std::string& header, const std::string& message,
                                 const uint8_t& urgency) {
    info("%s: session id: 0x%08x, level: %u, message: `%s'", "vardSendNotify", session, urgency, message.c_str());
    const auto found = table_.findSession(session);
    if (!found) {
        return false;
    }
    const auto program = config()->settingString("helper:notification", "/usr/libexec/vard/vard_notify");
    const std::list<std::string> args{"--header",  Utils::stringQuoted(header),
                                      "--message", Utils::stringQuoted(message),
                                      "--level",   std::to_string(urgency)};
    try {
        // The watcher must not look at the list between the start and the entry.
        const std::scoped_lock lock(childWaits_.mutex());
        childWaits_.addLocked(runSessionCommand(*found, program, args, {}, false));
    } catch (const std::exception& err) {
        error("%s: exception: %s", "vardSendNotify", err.what()); // that the session exists is what is answered
    }
    return true;
}

} // namespace Vard
