// Notices to users.
#include "dbus_service.h"

#include "session_command.h"
#include "utils.h"

namespace Vard {

namespace {
// A user may stop the programs, and a proxy report one attempt after the other.
constexpr size_t mostNotices = 16;
} // namespace

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
        std::erase_if(found->notices, [](const ProcessHandle& notice) { return !notice.exists(); });
        if (found->notices.size() >= mostNotices) {
            warning("%s: too many notices at once, session id: 0x%08x", "vardSendNotify", session);
            return true;
        }
        auto child = runSessionCommand(*found, program, args, {}, false);
        found->notices.push_back(child.process());
        childWaits_.addLocked(std::move(child));
    } catch (const std::exception& err) {
        error("%s: exception: %s", "vardSendNotify", err.what()); // that the session exists is what is answered
    }
    return true;
}

} // namespace Vard
