// A door for every session that the service opens.
#include "doorkeeper.h"

#include <systemd/sd-journal.h>

#include <algorithm>

namespace Doors {

using namespace std::chrono_literals;

namespace {

// The service sends a limit for one session and that session's permission in one go.
constexpr auto announcementGap = 2s;
constexpr auto againPause = 1s;

// What a stranger wrote, for the journal.
std::string printable(const std::string& text) {
    constexpr size_t longest = 64;
    std::string shown = text.substr(0, longest);
    std::ranges::replace_if(
        shown, [](char one) { return one < ' ' || one > '~'; }, '?');
    return shown;
}

} // namespace

/// What was found for a client.
struct Doorkeeper::Choice {
    SessionDoor* door = nullptr;
    std::string problem; ///< why there is none
};

Doorkeeper::Doorkeeper(asio::io_context& loop, const Options& options, std::function<void(bool orderly)> finished)
    : loop_(loop),
      options_(options),
      finished_(std::move(finished)),
      service_(loop, *this),
      announcedTimer_(loop),
      listTimer_(loop) {
    findSessions();
}

void Doorkeeper::findSessions() {
    listing_ = service_.present();
    if (!listing_ || stopping_) {
        placeUndecided();
        return; // it asks when the service comes
    }
    service_.askSessions([this](const std::optional<std::vector<uint32_t>>& sessions) {
        if (!sessions) {
            listTimer_.start(againPause, [this] { findSessions(); });
            return;
        }
        listing_ = false;
        for (const uint32_t session : *sessions) {
            if (!stopping_ && !doors_.contains(session)) {
                doorOf(session).open(0s);
            }
        }
        placeUndecided();
    });
}

SessionDoor& Doorkeeper::doorOf(uint32_t session) {
    auto& door = doors_[session];
    if (!door) {
        door = std::make_unique<SessionDoor>(loop_, service_, options_, *this, session);
    }
    return *door;
}

void Doorkeeper::allowConnection(uint32_t session, uint32_t uid) {
    if (stopping_) {
        return;
    }
    const auto limit = announcedLimit_.value_or(0s);
    announcedLimit_.reset();
    announcedTimer_.cancel();
    sd_journal_print(LOG_INFO, "session id: 0x%08x, uid: %u, allowed, limit: %lld", session, uid,
                     static_cast<long long>(limit.count()));
    doorOf(session).open(limit);
}

void Doorkeeper::listenTimeout(uint32_t seconds) {
    announcedLimit_ = std::chrono::seconds(seconds);
    announcedTimer_.start(announcementGap, [this] {
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

void Doorkeeper::serviceStarted() { findSessions(); }

void Doorkeeper::serviceStopped() {
    sd_journal_print(LOG_NOTICE, "%s", "the service has stopped");
    closeAll();
}

void Doorkeeper::busLost() {
    sd_journal_print(LOG_ERR, "%s", "the connection to the system bus is lost");
    finished_(false);
}

void Doorkeeper::stop() {
    stopping_ = true;
    if (doors_.empty()) {
        finished_(true);
    }
    closeAll();
}

void Doorkeeper::closeAll() {
    std::vector<SessionDoor*> doors;
    for (const auto& [session, door] : doors_) {
        doors.push_back(door.get());
    }
    std::ranges::for_each(doors, &SessionDoor::close);
}

void Doorkeeper::ask(uint32_t session) {
    if (!asked_.insert(session).second) {
        askAgain_.insert(session);
        return;
    }
    service_.askSession(session, [this, session](const std::optional<std::string>& json) {
        asked_.erase(session);
        if (const auto found = doors_.find(session); found != doors_.end()) {
            found->second->answered(json);
        }
        placeUndecided();
        if (askAgain_.erase(session) > 0) {
            ask(session);
        }
    });
}

void Doorkeeper::doorClosed(uint32_t session) {
    doors_.erase(session);
    if (stopping_ && doors_.empty()) {
        finished_(true);
    }
}

bool Doorkeeper::stillUnknown() const {
    return listing_ || std::ranges::any_of(doors_, [](const auto& entry) { return !entry.second->info(); });
}

Doorkeeper::Choice Doorkeeper::choose(const ConnectionRequest& request) const {
    if (!request.session) {
        return chooseFor(request.user);
    }
    const auto found = doors_.find(*request.session);
    return found != doors_.end() ? Choice{found->second.get(), {}}
                                 : Choice{nullptr, "no session of number " + std::to_string(*request.session)};
}

// The best match counts; of that user's sessions the desktop, and else the youngest.
Doorkeeper::Choice Doorkeeper::chooseFor(const std::string& user) const {
    if (user.empty()) {
        return {nullptr, "it names neither a user nor a session: enter the user's name in the client"};
    }
    auto best = UserMatch::Cut;
    std::map<std::string, std::vector<SessionDoor*>> found; // by the very name
    for (const auto& [session, door] : doors_) {
        const auto match = door->info() ? matchUser(user, door->info()->username) : UserMatch::None;
        if (match > best) {
            found.clear();
            best = match;
        }
        if (match == best) {
            found[door->info()->username].push_back(door.get());
        }
    }
    if (found.empty()) {
        return {nullptr, "no session of user " + printable(user) +
                             ": log the user in first (a front end does, or vardctl login)"};
    }
    if (found.size() > 1) {
        return {nullptr, "more than one user is meant by " + printable(user) + ": name the session in a .rdp file"};
    }
    const auto rank = [](const SessionDoor* door) { return std::pair(door->info()->desktop, door->info()->start); };
    return {*std::ranges::max_element(found.begin()->second, {}, rank), {}};
}

void Doorkeeper::place(const std::shared_ptr<Client>& client) {
    const auto choice = choose(client->request());
    // A desktop that is not known yet would come before a single program.
    const bool sure = client->request().session || !stillUnknown() ||
                      (choice.door != nullptr && choice.door->info() && choice.door->info()->desktop);
    if (choice.door != nullptr && (sure || stopping_)) {
        choice.door->enter(client);
    } else if (stillUnknown() && !stopping_) {
        std::erase_if(undecided_, [](const auto& other) { return other->closed(); });
        undecided_.push_back(client);
    } else {
        client->close(choice.problem);
    }
}

void Doorkeeper::placeUndecided() {
    if (stillUnknown()) {
        return;
    }
    for (const auto& client : std::exchange(undecided_, {})) {
        if (!client->closed()) {
            place(client);
        }
    }
}

} // namespace Doors
