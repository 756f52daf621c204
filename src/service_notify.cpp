// Notices to users.
#include "dbus_service.h"

#include "caller_text.h"
#include "session_command.h"
#include "utils.h"

namespace Vard {

namespace {

// A user may stop the programs, and a proxy report one attempt after the other, which must not silence the others.
constexpr size_t mostNotices = 12;
constexpr size_t mostAttempts = 4; // sixteen together
constexpr std::chrono::seconds longestNotice{75}; // it ends itself before, unless it hangs
constexpr size_t longestHeader = 256; // bytes, as the next
constexpr size_t longestMessage = 4 << 10;

std::list<std::string> noticeArguments(const std::string& header, const std::string& message, uint8_t urgency) {
    return {"--header",  Utils::stringQuoted(bounded(header, longestHeader)),
            "--message", Utils::stringQuoted(bounded(message, longestMessage)),
            "--level",   std::to_string(urgency)};
}

} // namespace

bool DBusService::vardSendNotify(const uint32_t& session, const std::string& header, const std::string& message,
                                 const uint8_t& urgency) {
    return sendNotice(session, header, message, urgency, false);
}

bool DBusService::sendNotice(uint32_t session, const std::string& header, const std::string& message, uint8_t urgency,
                             bool attempt) {
    info("%s: session id: 0x%08x, level: %u, message: `%s'", "vardSendNotify", session, urgency, message.c_str());
    const auto found = table_.findSession(session);
    if (!found) {
        return false;
    }
    try {
        startNotice(*found, noticeArguments(header, message, urgency), attempt);
    } catch (const std::exception& err) {
        error("%s: exception: %s", "vardSendNotify", err.what()); // that the session exists is what is answered
    }
    return true;
}

// A look-up may take as long as a directory service pleases, and a fork waits for it: neither happens under a lock that
// the watchers take.
void DBusService::startNotice(Session& session, const std::list<std::string>& args, bool attempt) {
    const auto program = config()->settingString("helper:notification", "/usr/libexec/vard/vard_notify");
    const Identity identity = Identity::of(session.username);
    const std::scoped_lock lock(noticesLock_);
    if (userChildren_.stuck.of(session.uid) != 0) {
        warning("%s: not shown, a process of the user's does not end, session id: 0x%08x", "vardSendNotify",
                session.sid);
        return;
    }
    auto& shown = attempt ? session.attempts : session.notices;
    std::erase_if(shown, [](const ProcessHandle& notice) { return !notice.exists(); });
    if (shown.size() >= (attempt ? mostAttempts : mostNotices)) {
        warning("%s: too many notices at once, session id: 0x%08x", "vardSendNotify", session.sid);
        return;
    }
    auto child = runSessionCommand(session, identity, program, args, {}, false);
    child.endAt(std::chrono::steady_clock::now() + longestNotice);
    shown.push_back(child.process());
    childWaits_.add(std::move(child));
}

} // namespace Vard
