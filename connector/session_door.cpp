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
constexpr size_t mostGates = 3; // the one that serves, the one that waits, and a swollen one with its last clients
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
    startLimit();
    owner_.ask(session_);
}

void SessionDoor::limitWaiting(std::chrono::seconds limit) {
    if (serving_ == nullptr) {
        limit_ = limit;
        startLimit();
    }
}

void SessionDoor::startLimit() {
    limitTimer_.cancel();
    if (limit_ > 0s && waits() && waiting_->opened() && serving_ == nullptr) {
        limitTimer_.start(limit_, [this] {
            sd_journal_print(LOG_NOTICE, "session id: 0x%08x, no client within %lld seconds", session_,
                             static_cast<long long>(limit_.count()));
            close();
        });
    }
}

void SessionDoor::enter(const std::shared_ptr<Client>& client) {
    if (!wanted_) {
        client->close("its session is closed");
        return;
    }
    if (waits() && waiting_->swollen() && gates_.size() < mostGates) {
        waiting_ = nullptr; // it goes when those who are there have gone
    }
    if (waits()) {
        waiting_->enter(client);
        return;
    }
    std::erase_if(early_, [](const auto& other) { return other->closed(); });
    early_.push_back(client);
    owner_.ask(session_);
}

void SessionDoor::answered(const std::optional<std::string>& json) {
    if (!json) { // the bus or the service has too much to do
        againTimer_.start(againPause, [this] { owner_.ask(session_); });
        return;
    }
    info_ = parseSessionInfo(*json);
    if (!info_) {
        close();
    } else if (waits()) {
        if (validHashLine(info_->hashLine, info_->username)) {
            waiting_->renewHashLine(info_->hashLine);
        }
        if (waiting_->opened()) {
            service_.reportListening(session_, true); // whoever asked for it may wait for that
        }
    } else if (wanted_ && (serving_ == nullptr || !early_.empty())) {
        launch();
    }
}

void SessionDoor::launch() {
    againTimer_.cancel();
    if (!validHashLine(info_->hashLine, info_->username)) {
        giveUp("the session has no hash line");
        return;
    }
    try {
        gates_.push_back(std::make_unique<Gate>(loop_, options_, session_, *info_, *this));
    } catch (const std::exception& err) {
        giveUp(err.what());
        return;
    }
    waiting_ = gates_.back().get();
    for (const auto& client : std::exchange(early_, {})) {
        if (!client->closed()) {
            waiting_->enter(client);
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

void SessionDoor::gateOpened(Gate& /*gate*/) {
    sd_journal_print(LOG_INFO, "session id: 0x%08x, user: %s, open", session_, info_ ? info_->username.c_str() : "");
    service_.reportListening(session_, true);
    startLimit();
}

void SessionDoor::clientCame(Gate& /*gate*/, const Client& client) {
    sd_journal_print(LOG_INFO, "session id: 0x%08x, client: %s", session_, client.address().c_str());
    if (reported_.size() < mostReported && reported_.insert(client.address()).second) {
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
    waiting_ = waiting_ == &gate ? nullptr : waiting_;
    reported_.clear();
    limitTimer_.cancel();
    service_.reportConnected(session_, static_cast<uint32_t>(gate.pid()), client.address());
    service_.reportSecurity(session_, security.nla, security.tls, security.rdp);
}

// While a client is served, a second transport is only there for those who want to take the session over.
void SessionDoor::gateIdle(Gate& gate) {
    if (serving_ != nullptr || waiting_ != &gate) {
        gate.end();
    } else if (gate.swollen()) {
        sd_journal_print(LOG_NOTICE, "session id: 0x%08x, the transport has grown, replaced, pid: %d", session_,
                         gate.pid());
        gate.end();
    }
}

void SessionDoor::gateClosed(Gate& gate) {
    const bool opened = gate.opened();
    const bool served = &gate == serving_;
    const bool crashed = &gate == waiting_ && !gate.ending();
    if (&gate == waiting_) {
        waiting_ = nullptr;
        limitTimer_.cancel();
    }
    if (served) {
        sd_journal_print(LOG_INFO, "session id: 0x%08x, disconnected", session_);
        serving_ = nullptr;
    }
    std::erase_if(gates_, [&gate](const auto& one) { return one.get() == &gate; });
    if (!wanted_) {
        closeIfEmpty();
    } else if (!opened && crashed) {
        giveUp("the transport ended");
    } else if (waiting_ == nullptr && (serving_ == nullptr || !early_.empty())) {
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
    waiting_ = serving_ = nullptr;
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
