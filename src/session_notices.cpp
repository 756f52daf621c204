// Notices to users.
#include "session_notices.h"

#include "logger.h"
#include "session_command.h"
#include "text.h"

#include <chrono>
#include <exception>
#include <list>

namespace Vard {

namespace {

// A user may stop the programs, and a proxy report one attempt after the other, which must not silence the others.
constexpr size_t mostNotices = 12;
constexpr size_t mostAttempts = 4; // sixteen together
constexpr std::chrono::seconds longestNotice{75}; // it ends itself before, unless it hangs
constexpr size_t longestHeader = 256; // bytes, as the next
constexpr size_t longestMessage = 4 << 10;
constexpr const char* func = "vardSendNotify";

std::list<std::string> programArguments(const SessionNotice& notice) {
    return {"--header",  Utils::stringQuoted(bounded(notice.header, longestHeader)),
            "--message", Utils::stringQuoted(bounded(notice.message, longestMessage)),
            "--level",   std::to_string(notice.urgency)};
}

} // namespace

SessionNotice attemptNotice(const std::string& address) {
    return {"", "There was an attempt to connect from a remote address: " + bounded(address, longestAddress), 0, true};
}

bool SessionNotices::send(const SessionTable& table, uint32_t sid, const SessionNotice& notice) {
    Syslog::info("%s: session id: 0x%08x, level: %u, message: `%s'", func, sid, notice.urgency, notice.message.c_str());
    const auto found = table.findSession(sid);
    if (!found) {
        return false;
    }
    try {
        start(*found, notice);
    } catch (const std::exception& err) {
        Syslog::error("%s: exception: %s", func, err.what()); // that the session exists is what is answered
    }
    return true;
}

// A look-up may take as long as a directory service pleases, and a fork waits for it: neither happens under a lock that
// the watchers take.
void SessionNotices::start(Session& session, const SessionNotice& notice) {
    const auto program = config_.settings()->setting(Settings::noticeProgram);
    const Identity identity = Identity::of(session.username);
    if (session.users().stuck.of(session.uid) != 0) {
        Syslog::warning("%s: not shown, a process of the user's does not end, session id: 0x%08x", func, session.sid);
        return;
    }
    auto& shown = notice.attempt ? session.attempts : session.notices;
    const bool started = shown.add(notice.attempt ? mostAttempts : mostNotices, [&] {
        auto child = runSessionCommand(session, identity, program, programArguments(notice), {}, false);
        child.endAt(std::chrono::steady_clock::now() + longestNotice);
        auto process = child.process();
        children_.add(std::move(child));
        return process;
    });
    if (!started) {
        Syslog::warning("%s: too many notices at once, session id: 0x%08x", func, session.sid);
    }
}

} // namespace Vard
