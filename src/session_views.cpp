// Views of the session table for callers outside: rows and JSON texts.
#include "session_views.h"

#include "deadline.h"
#include "fork_guard.h"
#include "json_writer.h"
#include "logger.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace Vard {

using namespace std::chrono_literals;

namespace {

// What all X servers of one view may take together, and what each has even when the others used that up: one that runs
// answers in a fraction of a millisecond.
constexpr auto viewLimit = 1500ms;
constexpr auto leastLimit = 20ms;

std::string localTime(std::chrono::system_clock::time_point point) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(point);
    std::tm fields{};
    const ForkGuard guard; // the C library's lock must not be taken in a child that goes on without exec
    ::tzset(); // the administrator may have changed the zone; localtime_r alone would go on with the first
    ::localtime_r(&seconds, &fields);
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%F %T", &fields)};
}

void writeTexts(ObjectWriter& json, const Session& session, const SessionState& state) {
    json.text("home", session.home.string());
    json.text("xauthfile", session.xauthfile.path().string());
    json.text("runtimedir", session.runtimedir.string());
    json.text("xsession", session.xsession.string());
    json.text("gecos", session.gecos);
    json.text("shell", session.shell);
    json.text("username", session.username);
    json.text("domain", state.domain);
    json.text("remoteaddr", state.remoteaddr);
    json.text("ntlm", state.ntlm.text());
}

void writeNumbers(ObjectWriter& json, const Session& session, const SessionState& state) {
    using std::chrono::duration_cast;
    json.number("uid", session.uid);
    json.number("gid", session.gid);
    json.number("display", session.display);
    json.number("sid", session.sid);
    json.number("durationLimit", state.durationLimit);
    json.number("inactivityLimit", state.inactivityLimit);
    json.number("pid1", state.pid1.pid());
    json.number("pid2", state.pid2.pid());
    json.number("pid3", state.pid3.pid());
    json.number("start", duration_cast<std::chrono::seconds>(session.start.time_since_epoch()).count());
}

void writeFlags(ObjectWriter& json, const SessionState& state) {
    json.flag("sec:nla", state.nla);
    json.flag("sec:tls", state.tls);
    json.flag("sec:rdp", state.rdp);
    json.flag("sec:auth", state.auth);
    json.flag("seamless:mode", state.seamless);
}

// All zero when the server does not answer in time: it is the user's, who may have stopped it.
Xcb::Rect rootGeometry(Xcb::Connector* xcb, std::chrono::milliseconds limit) {
    const auto end = Deadline::in(limit);
    if (xcb == nullptr || !xcb->answers(limit)) {
        return {};
    }
    return xcb->getWindowGeometry(xcb->windowRoot(), end.left());
}

// Whose server dawdles at every question is asked no more for a while.
Xcb::Rect askRoot(const Session& session, std::chrono::milliseconds limit) {
    auto& children = session.users();
    const auto left = std::min(limit, children.tools.left(session.uid));
    if (left.count() == 0) {
        return {};
    }
    const UserChildren::Question question(children, session.uid);
    return rootGeometry(session.xcb.get(), left);
}

} // namespace

uint32_t countSessions(SessionTable& table, ProcessHandle SessionState::*process) {
    const auto view = table.lock();
    return static_cast<uint32_t>(std::ranges::count_if(
        view.sessions(), [&](const auto& session) { return (view.state(*session).*process).pid() > 0; }));
}

std::vector<std::pair<std::string, uint32_t>> sessionNames(SessionTable& table) {
    std::vector<std::pair<std::string, uint32_t>> names;
    const auto view = table.lock();
    for (const auto& session : view.sessions()) {
        names.emplace_back(Utils::toValidUtf8(session->username), session->sid);
    }
    return names;
}

std::vector<SessionRow> sessionRows(SessionTable& table) {
    std::vector<SessionRow> rows;
    const auto view = table.lock(); // held for seconds while a session starts
    const auto now = std::chrono::system_clock::now();
    for (const auto& session : view.sessions()) {
        const auto age = std::chrono::duration_cast<std::chrono::seconds>(now - session->start).count();
        rows.push_back({session->display, Utils::toValidUtf8(session->username), localTime(session->start),
                        static_cast<uint32_t>(std::max<int64_t>(age, 0)), session->uid, session->gid});
    }
    return rows;
}

std::string sessionJson(SessionTable& table, const Session& session, std::chrono::milliseconds limit) {
    const auto root = askRoot(session, limit);
    ObjectWriter json;
    const auto view = table.lock();
    const auto& state = view.state(session);
    writeTexts(json, session, state);
    writeNumbers(json, session, state);
    if (root.width > 0) {
        json.number("depth", static_cast<unsigned>(session.xcb->depth()));
        json.number("width", root.width);
        json.number("height", root.height);
    }
    writeFlags(json, state);
    return json.finish();
}

std::string sessionsJson(SessionTable& table, const std::vector<std::shared_ptr<Session>>& sessions) {
    const auto end = Deadline::in(viewLimit);
    ArrayWriter array;
    for (const auto& session : sessions) {
        const auto limit = std::max<std::chrono::milliseconds>(end.left(), leastLimit);
        if (!array.append(sessionJson(table, *session, limit))) {
            Syslog::warning("%s: too many sessions, user: %s", "vardUserInfoJson", session->username.c_str());
            break;
        }
    }
    return array.finish();
}

} // namespace Vard
