// The start of a session: the one that is there, or a new one, under one lock from top to bottom.
#include "session_start.h"

#include "deadline.h"
#include "logger.h"
#include "session_desktop.h"

#include <chrono>

namespace Vard {

using namespace std::chrono_literals;

namespace {

constexpr const char* func = "startSession";
constexpr int mostDisplays = 3; // tried by one start

bool isEnding(const SessionState& state) {
    return state.pid1.endedBy({}) || state.pid2.endedBy({}) || state.pid1.toldToEndFor();
}

// Not one that is ending: its caller would be told of a session that is gone a moment later.
RequestHold findReusable(const StartRequest& request, const TableView& sessions) {
    for (const auto& session : sessions.sessions()) {
        if (session->username == request.user && session->xsession.native() == request.program.native() &&
            !isEnding(sessions.state(*session))) {
            return RequestHold(session);
        }
    }
    return {};
}

} // namespace

RequestHold SessionStart::start(const StartRequest& request) {
    const auto& [depth, width, height] = request.format;
    Syslog::notice("%s: depth: %u, width: %u, height: %u, session: %s", func, depth, width, height,
                   request.program.c_str());
    LoginAudit audit(services_.audit); // reports when it goes, after the table is free again
    RequestHold held;
    {
        auto sessions = services_.table.lock();
        held = findReusable(request, sessions);
        if (held) {
            Syslog::info("%s: session found, session id: 0x%08x, display: %u", func, held->sid, held->display);
            waitSessionGeometryUpdate(held.session().get(), width, height, *services_.config.settings());
            return held;
        }
        held = startNew(request, sessions, audit);
        if (!held) {
            return held;
        }
    }
    if (held->homeMissing) {
        repeatGeometry(held.session(), request.format);
    }
    audit.success();
    return held;
}

// Users can put sockets and locks into a display's place faster than its server starts: the next display is tried, but
// nobody gets the service to try them all.
RequestHold SessionStart::startNew(const StartRequest& request, TableView& sessions, LoginAudit& audit) {
    const auto settings = services_.config.settings();
    SessionAssembly assembly(request, services_, *settings, sessions);
    for (int attempt = 0; attempt < mostDisplays; ++attempt) {
        auto right = services_.display.pool.take(sessions.freeDisplays(),
                                                 [&](uint32_t display) { return displaySocket(*settings, display); });
        if (!right) {
            Syslog::warning("%s: full house", func);
            return {};
        }
        const uint32_t display = right.display();
        if (auto session = assembly.build(std::move(right), audit)) {
            RequestHold held(session);
            sessions.put(std::move(session));
            return held;
        }
        if (!services_.display.pool.rests(display)) {
            return {};
        }
    }
    return {};
}

// A desktop that starts without a home sets the screen size back, more than once.
void SessionStart::repeatGeometry(const std::shared_ptr<Session>& session, const DisplayFormat& format) {
    auto& tasks = services_.display.tasks;
    tasks.run("repeatGeometry", [&tasks, &config = services_.config, session, format] {
        for (const auto pause : {3000ms, 12000ms}) {
            const auto end = Deadline::in(pause);
            while (!end.passed()) {
                if (session->ended || !tasks.sleep(100ms)) {
                    return; // holding the record longer would keep its display from being used again
                }
            }
            waitSessionGeometryUpdate(session.get(), format.width, format.height, *config.settings());
        }
    });
}

} // namespace Vard
