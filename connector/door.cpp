// The way into one session: its transport, one process after the other.
#include "door.h"

#include "tcp_peers.h"

#include <systemd/sd-journal.h>

#include <exception>

namespace Doors {

using namespace std::chrono_literals;

namespace {
constexpr auto watchPeriod = 500ms;
constexpr auto crashPause = 1s; // a transport that crashes at every start must not keep the machine busy

// Whoever is on the port now, for a message about one of them: the transport's log does not say which.
std::string presentClients(uint16_t port) {
    std::string text;
    for (const auto& address : tcpPeers(port)) {
        text += (text.empty() ? "" : ", ") + address;
    }
    return text;
}
} // namespace

void Door::open(std::chrono::seconds limit) {
    wanted_ = true;
    limit_ = limit;
    startLimit();
    owner_.ask(session_);
}

void Door::limitWaiting(std::chrono::seconds limit) {
    if (!connected_) {
        limit_ = limit;
        startLimit();
    }
}

void Door::startLimit() {
    limitTimer_.reset();
    if (limit_ > 0s && listening_ && !connected_) {
        limitTimer_ = EventSource::after(loop_, limit_, [this] {
            sd_journal_print(LOG_NOTICE, "session id: 0x%08x, no client within %lld seconds", session_,
                             static_cast<long long>(limit_.count()));
            close();
        });
    }
}

void Door::answered(const std::string& json) {
    const auto info = parseSessionInfo(json);
    if (transport_) {
        if (info && samFile_ && validHashLine(info->hashLine, info->username)) {
            samFile_->replace(info->hashLine + "\n");
        }
    } else if (wanted_ && info) {
        launch(*info);
    } else {
        owner_.doorClosed(session_);
    }
}

void Door::launch(const SessionInfo& info) {
    if (!validHashLine(info.hashLine, info.username)) {
        giveUp("the session has no hash line");
        return;
    }
    port_ = owner_.choosePort(port_);
    if (port_ == 0) {
        giveUp("no port is free");
        return;
    }
    try {
        startTransport(info);
    } catch (const std::exception& err) {
        giveUp(err.what());
    }
}

void Door::startTransport(const SessionInfo& info) {
    listening_ = connected_ = false;
    reported_.clear();
    const auto sam = options_.runtimeDir / "private" / (std::to_string(session_) + ".sam");
    samFile_ = std::make_unique<OwnedFile>(sam, info.hashLine + "\n", 0600);
    transport_ = std::make_unique<Transport>(loop_,
                                             TransportSettings{options_.transport, options_.bind, port_, info.display,
                                                               info.xauthfile, sam, options_.stateDir},
                                             *this);
}

void Door::giveUp(const char* why) {
    sd_journal_print(LOG_ERR, "session id: 0x%08x, cannot listen: %s", session_, why);
    samFile_.reset();
    service_.reportListening(session_, false);
    owner_.doorClosed(session_);
}

void Door::transportSaid(const LogEvent& event, const std::string& line) {
    switch (event.kind) {
        case LogEvent::Listening:
            listening();
            break;
        case LogEvent::Negotiated:
            security_ = event;
            clientCame();
            break;
        case LogEvent::Refused:
            sd_journal_print(LOG_WARNING, "session id: 0x%08x, a client was refused: %s", session_,
                             presentClients(port_).c_str());
            break;
        case LogEvent::Activated:
            clientServed(event);
            break;
        case LogEvent::Failure:
            // Later ones tell of clients that left, in many words.
            if (!listening_) {
                sd_journal_print(LOG_WARNING, "session id: 0x%08x, transport: %s", session_, line.c_str());
            }
            break;
        case LogEvent::Other:
            break;
    }
}

void Door::listening() {
    if (listening_) {
        return; // once for every address family
    }
    portFile_ = std::make_unique<OwnedFile>(options_.runtimeDir / (std::to_string(session_) + ".port"),
                                            std::to_string(port_) + "\n", 0644);
    listening_ = true;
    sd_journal_print(LOG_INFO, "session id: 0x%08x, port: %u", session_, static_cast<unsigned>(port_));
    service_.reportListening(session_, true);
    startLimit();
}

// The log does not say which client it is: every address that is new on the port is told, once.
void Door::clientCame() {
    for (const auto& address : tcpPeers(port_)) {
        if (reported_.insert(address).second) {
            sd_journal_print(LOG_INFO, "session id: 0x%08x, client: %s", session_, address.c_str());
            service_.reportClient(session_, address);
        }
    }
}

// A transport that is reported again is ended by the service, as the one before: only its first client counts. Another
// one sees the same screen, and the transport stays until the last has left.
void Door::clientServed(const LogEvent& event) {
    sd_journal_print(LOG_INFO, "session id: 0x%08x, connected: %s", session_, event.address.c_str());
    served_.insert(event.thread);
    if (connected_) {
        return;
    }
    connected_ = true;
    limitTimer_.reset();
    service_.reportConnected(session_, static_cast<uint32_t>(transport_->pid()), event.address);
    service_.reportSecurity(session_, security_.nla, security_.tls, security_.rdp);
    watchClients();
}

void Door::watchClients() {
    std::erase_if(served_, [this](pid_t thread) { return !transport_->hasThread(thread); });
    if (!served_.empty()) {
        watchTimer_ = EventSource::after(loop_, watchPeriod, [this] { watchClients(); });
        return;
    }
    sd_journal_print(LOG_INFO, "session id: 0x%08x, the client has left", session_);
    transport_->end();
}

void Door::transportEnded() {
    transport_.reset();
    samFile_.reset();
    portFile_.reset();
    limitTimer_.reset();
    watchTimer_.reset();
    if (!served_.empty()) { // not by the client's leaving
        sd_journal_print(LOG_INFO, "session id: 0x%08x, the client was disconnected", session_);
    }
    served_.clear();
    if (!wanted_) {
        owner_.doorClosed(session_);
    } else if (!listening_) {
        giveUp("the transport ended");
    } else if (connected_) {
        owner_.ask(session_);
    } else {
        againTimer_ = EventSource::after(loop_, crashPause, [this] { owner_.ask(session_); });
    }
}

void Door::sessionEnded() {
    if (transport_) {
        transport_->end();
    }
}

void Door::close() {
    wanted_ = false;
    if (transport_) {
        transport_->end();
    } else {
        owner_.doorClosed(session_);
    }
}

} // namespace Doors
