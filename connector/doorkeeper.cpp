// A door for every session that the service opens.
#include "doorkeeper.h"

#include "tcp_peers.h"

#include <systemd/sd-journal.h>

#include <algorithm>
#include <vector>

namespace Doors {

using namespace std::chrono_literals;

namespace {
// The service sends a limit for one session and that session's permission in one go.
constexpr auto announcementGap = 100ms;
} // namespace

void Doorkeeper::allowConnection(uint32_t session, uint32_t uid) {
    if (stopping_) {
        return;
    }
    const auto limit = announcedLimit_.value_or(0s);
    announcedLimit_.reset();
    announcedTimer_.reset();
    sd_journal_print(LOG_INFO, "session id: 0x%08x, uid: %u, allowed, limit: %lld", session, uid,
                     static_cast<long long>(limit.count()));
    auto& door = doors_[session];
    if (!door) {
        door = std::make_unique<Door>(loop_, service_, options_, *this, session);
    }
    door->open(limit);
}

void Doorkeeper::listenTimeout(uint32_t seconds) {
    announcedLimit_ = std::chrono::seconds(seconds);
    announcedTimer_ = EventSource::after(loop_, announcementGap, [this] {
        const auto limit = announcedLimit_.value_or(0s);
        announcedLimit_.reset();
        for (const auto& [session, door] : doors_) {
            door->limitWaiting(limit);
        }
    });
}

void Doorkeeper::sessionShutdown(uint32_t session) {
    if (const auto found = doors_.find(session); found != doors_.end()) {
        found->second->sessionEnded();
    }
}

void Doorkeeper::serviceStopped() {
    sd_journal_print(LOG_NOTICE, "%s", "the service has stopped");
    closeAll();
}

void Doorkeeper::stop() {
    stopping_ = true;
    closeAll();
    if (doors_.empty()) {
        sd_event_exit(loop_, 0);
    }
}

void Doorkeeper::closeAll() {
    std::vector<Door*> doors;
    for (const auto& [session, door] : doors_) {
        doors.push_back(door.get());
    }
    std::ranges::for_each(doors, &Door::close);
}

void Doorkeeper::ask(uint32_t session) {
    service_.askSession(session, [this, session](const std::string& json) {
        if (const auto found = doors_.find(session); found != doors_.end()) {
            found->second->answered(json);
        }
    });
}

bool Doorkeeper::isUsable(uint16_t port) const {
    return port >= options_.firstPort && port <= options_.lastPort &&
           std::ranges::none_of(doors_, [port](const auto& entry) { return entry.second->port() == port; }) &&
           portIsFree(options_.bind, port);
}

uint16_t Doorkeeper::choosePort(uint16_t preferred) {
    if (preferred != 0 && portIsFree(options_.bind, preferred)) {
        return preferred; // its own, which clients know
    }
    for (unsigned port = options_.firstPort; port <= options_.lastPort; ++port) {
        if (isUsable(static_cast<uint16_t>(port))) {
            return static_cast<uint16_t>(port);
        }
    }
    return 0;
}

void Doorkeeper::doorClosed(uint32_t session) {
    doors_.erase(session);
    if (stopping_ && doors_.empty()) {
        sd_event_exit(loop_, 0);
    }
}

} // namespace Doors
