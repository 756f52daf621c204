// The way into one session.
#include "session_door.h"

#include <systemd/sd-journal.h>

#include <algorithm>
#include <exception>

namespace Doors {

using namespace std::chrono_literals;

namespace {
// A transport that crashes at every start must not keep the machine busy, and the session of one that was ended may be
// about to end itself. A client that comes meanwhile does not wait so long.
constexpr auto againPause = 1s;
constexpr size_t mostReported = 64;
constexpr size_t mostWaiting = 4; // transports; so many neighbours do not get in each other's way
} // namespace

SessionDoor::SessionDoor(asio::io_context& loop, ServiceLink& service, const Options& options, Owner& owner,
                         uint32_t session)
    : loop_(loop),
      service_(service),
      options_(options),
      owner_(owner),
      session_(session),
      limitTimer_(loop),
      againTimer_(loop) {}

void SessionDoor::open(std::chrono::seconds limit) {
    wanted_ = true;
    limit_ = limit;
    startWaiting();
    owner_.ask(session_);
}

void SessionDoor::limitWaiting(std::chrono::seconds limit) {
    if (serving_ == nullptr) {
        limit_ = limit;
        startWaiting();
    }
}

long SessionDoor::openGates() const {
    return std::ranges::count_if(gates_, [](const auto& gate) { return gate->waits() && gate->opened(); });
}

void SessionDoor::startWaiting() {
    limitTimer_.cancel();
    if (limit_ > 0s && serving_ == nullptr && openGates() > 0) {
        limitTimer_.start(limit_, [this] {
            sd_journal_print(LOG_NOTICE, "session id: 0x%08x, no client within %lld seconds", session_,
                             static_cast<long long>(limit_.count()));
            close();
        });
    }
}

// That neighbour's own, or else a free one; when there are so many that no more are started, the emptiest.
Gate* SessionDoor::gateFor(const Address& from) {
    Gate* emptiest = nullptr;
    Gate* own = nullptr;
    size_t count = 0;
    for (const auto& gate : gates_) {
        if (!gate->waits()) {
            continue;
        }
        ++count;
        if (gate->belongsTo(from) && (own == nullptr || gate->crowd() > 0)) {
            own = gate.get();
        }
        if (emptiest == nullptr || gate->crowd() < emptiest->crowd()) {
            emptiest = gate.get();
        }
    }
    return own == nullptr && count >= mostWaiting ? emptiest : own;
}

void SessionDoor::enter(const std::shared_ptr<Client>& client) {
    if (!wanted_) {
        client->close("its session is closed");
        return;
    }
    if (Gate* gate = gateFor(neighbour(client->origin()))) {
        gate->enter(client);
        return;
    }
    std::erase_if(early_, [](const auto& other) { return other->closed(); });
    early_.push_back(client);
    owner_.ask(session_);
}

bool SessionDoor::needsGate() const {
    const auto waits = [](const auto& gate) { return gate->waits(); };
    return wanted_ && (!early_.empty() || (serving_ == nullptr && std::ranges::none_of(gates_, waits)));
}

void SessionDoor::answered(const std::optional<std::string>& json) {
    if (!json) { // the bus or the service has too much to do
        againTimer_.start(againPause, [this] { owner_.ask(session_); });
        return;
    }
    info_ = parseSessionInfo(*json);
    if (!info_) {
        close();
        return;
    }
    std::erase_if(early_, [](const auto& client) { return client->closed(); });
    try {
        renewHashLines();
        if (needsGate()) {
            launch();
        }
    } catch (const std::exception& err) {
        giveUp(err.what());
    }
}

// Who asked for the session to be opened may wait for the report.
void SessionDoor::renewHashLines() {
    for (const auto& gate : gates_) {
        if (gate->waits() && validHashLine(info_->hashLine, info_->username)) {
            gate->renewHashLine(info_->hashLine);
        }
    }
    if (openGates() > 0) {
        service_.reportListening(session_, true);
    }
}

void SessionDoor::launch() {
    againTimer_.cancel();
    if (!validHashLine(info_->hashLine, info_->username)) {
        giveUp("the session has no hash line");
        return;
    }
    gates_.push_back(std::make_unique<Gate>(loop_, options_, session_, *info_, *this));
    for (const auto& client : std::exchange(early_, {})) {
        if (!client->closed()) {
            enter(client);
        }
    }
}

// The next client, or the next permission, tries again.
void SessionDoor::giveUp(const char* why) {
    sd_journal_print(LOG_ERR, "session id: 0x%08x, cannot listen: %s", session_, why);
    for (const auto& client : std::exchange(early_, {})) {
        client->close("its session cannot be shown");
    }
    service_.reportListening(session_, false);
}

void SessionDoor::gateOpened(Gate& gate) {
    sd_journal_print(LOG_INFO, "session id: 0x%08x, user: %s, open", session_, info_ ? info_->username.c_str() : "");
    service_.reportListening(session_, true);
    if (openGates() == 1) { // strangers who have another one started do not put the limit off
        startWaiting();
    }
    if (gate.crowd() == 0) { // whoever it was started for has gone
        gateIdle(gate);
    }
}

void SessionDoor::clientCame(Gate& /*gate*/, const Client& client) {
    sd_journal_print(LOG_INFO, "session id: 0x%08x, client: %s", session_, client.address().c_str());
    if (reported_.size() < mostReported && reported_.insert(neighbour(client.origin())).second) {
        service_.reportClient(session_, client.address());
    }
}

void SessionDoor::clientServed(Gate& gate, const Client& client, const LogEvent& security) {
    sd_journal_print(LOG_INFO, "session id: 0x%08x, connected: %s", session_, client.address().c_str());
    if (serving_ != nullptr) {
        sd_journal_print(LOG_INFO, "session id: 0x%08x, the client before has to go", session_);
        serving_->retire();
    }
    serving_ = &gate;
    reported_.clear();
    limitTimer_.cancel();
    service_.reportConnected(session_, static_cast<uint32_t>(gate.pid()), client.address());
    service_.reportSecurity(session_, security.nla, security.tls, security.rdp);
}

// One free gate is enough, and none while a client is served: another one is then for those only who want to take the
// session over.
void SessionDoor::gateIdle(Gate& gate) {
    const auto free = [&gate](const auto& other) {
        return other.get() != &gate && other->waits() && other->crowd() == 0;
    };
    if (serving_ != nullptr || std::ranges::any_of(gates_, free)) {
        gate.end();
    } else if (gate.swollen()) {
        sd_journal_print(LOG_NOTICE, "session id: 0x%08x, the transport has grown, replaced, pid: %d", session_,
                         gate.pid());
        gate.end();
    }
}

void SessionDoor::gateClosed(Gate& gate) {
    const bool served = &gate == serving_;
    const bool crashed = !served && !gate.ending();
    const bool opened = gate.opened();
    if (served) {
        sd_journal_print(LOG_INFO, "session id: 0x%08x, disconnected", session_);
        serving_ = nullptr;
    }
    std::erase_if(gates_, [&gate](const auto& one) { return one.get() == &gate; });
    if (openGates() == 0) {
        limitTimer_.cancel();
    }
    if (!wanted_) {
        closeIfEmpty();
    } else if (crashed && !opened) {
        giveUp("the transport ended");
    } else if (needsGate()) {
        againTimer_.start(againPause, [this] { owner_.ask(session_); });
    }
}

void SessionDoor::sessionEnded() {
    endGates();
    owner_.ask(session_);
}

void SessionDoor::close() {
    wanted_ = false;
    endGates();
    for (const auto& client : std::exchange(early_, {})) {
        client->close("its session has ended");
    }
    closeIfEmpty();
}

// They are of no more use to anybody who comes.
void SessionDoor::endGates() {
    serving_ = nullptr;
    limitTimer_.cancel();
    againTimer_.cancel();
    std::ranges::for_each(gates_, [](const auto& gate) { gate->end(); });
}

void SessionDoor::closeIfEmpty() {
    if (gates_.empty()) {
        owner_.doorClosed(session_);
    }
}

} // namespace Doors
