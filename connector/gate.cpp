// One transport and the clients that came to it.
#include "gate.h"

#include "certificate.h"

#include <systemd/sd-journal.h>
#include <unistd.h>
#include <boost/asio/write.hpp>

#include <algorithm>
#include <array>
#include <map>
#include <regex>
#include <set>
#include <vector>

namespace Doors {

using namespace std::chrono_literals;

namespace {

constexpr size_t mostGuests = 32; // each costs the transport eight descriptors and some megabytes
constexpr auto answerPause = 1s;
constexpr int startPatience = 30; // a hundred may start at once, when the connector does
constexpr int answerPatience = 10;
constexpr auto retireLimit = 8s; // longer than the service takes for the keyboard of the new one

// Each of a session's transports has names of its own: the one before may not have gone yet.
std::string fileName(const Options& options, uint32_t session) {
    static unsigned number = 0;
    return (options.runtimeDir / (std::to_string(session) + "-" + std::to_string(++number))).string();
}

} // namespace

/// The one connection whose thread is not known yet. It stays until the transport has answered, even if its client has
/// gone: another's answer could be taken for it.
struct Gate::Introduction {
    Introduction(asio::io_context& loop, std::shared_ptr<Client> whose) : client(std::move(whose)), socket(loop) {}
    std::shared_ptr<Client> client;
    Local::socket socket;
};

Gate::Gate(asio::io_context& loop, const Options& options, uint32_t session, const SessionInfo& info, Owner& owner)
    : loop_(loop),
      session_(session),
      owner_(owner),
      username_(info.username),
      hashLine_(info.hashLine),
      stateDir_(options.stateDir),
      samFile_(fileName(options, session) + ".sam", info.hashLine + "\n", 0600),
      socket_(samFile_.path().string() + ".socket"),
      transport_(loop,
                 TransportSettings{options.transport, socket_, info.display, info.xauthfile, samFile_.path(),
                                   options.stateDir},
                 *this),
      crowd_(mostGuests, mostGuests),
      answerTimer_(loop),
      retireTimer_(loop) {
    patience_ = startPatience;
    awaitAnswer();
}

Gate::~Gate() {
    for (auto guests = std::move(guests_); auto& guest : guests) {
        guest.client->whenClosed(nullptr);
        guest.client->close();
    }
    ::unlink(socket_.c_str());
}

void Gate::awaitAnswer() {
    answerTimer_.start(answerPause, [this] { noAnswer(); });
}

// A transport that has a picture to hand out waits for all its clients, and takes no other while one of them does not
// listen. Who has been there longest without a password has to go first.
void Gate::noAnswer() {
    const auto oldest = std::ranges::find(guests_, true, &Guest::introduced);
    if (oldest != guests_.end()) {
        const auto client = oldest->client;
        client->close("it kept others waiting");
        awaitAnswer();
    } else if (patience_-- > 0) {
        awaitAnswer();
    } else {
        sd_journal_print(LOG_WARNING, "session id: 0x%08x, the transport does not answer, pid: %d", session_, pid());
        end();
    }
}

void Gate::enter(const std::shared_ptr<Client>& client) {
    client->whenClosed([this, whose = client.get()] { left(whose); });
    auto place = crowd_.enter(client->origin(), [client] { client->turnAway(); });
    if (guests_.empty()) {
        from_ = neighbour(client->origin());
    }
    guests_.push_back({client, std::move(place), false, 0, {}});
    try {
        if (spelling(*client) != username_) {
            renewHashLine(hashLine_);
        }
        introduceNext();
    } catch (const std::exception& err) { // a full disk: the others are not to feel it
        client->close(std::string("its session cannot be shown: ") + err.what());
    }
}

void Gate::renewHashLine(const std::string& line) {
    hashLine_ = line;
    std::string text = line + "\n";
    std::set<std::string> written{username_};
    for (const auto& guest : guests_) {
        if (const auto name = spelling(*guest.client); written.insert(name).second) {
            text += name + line.substr(username_.size()) + "\n";
        }
    }
    samFile_.replace(text);
}

// The transport looks the name up as it is written, and knows the user by one spelling only: for the time of such a
// client's stay it is told "alice@work.example", too. A stranger who makes one up still has to know the password.
std::string Gate::spelling(const Client& client) const {
    static const std::regex harmless("[A-Za-z0-9._@-]{1,64}");
    const auto& user = client.request().user;
    return matchUser(user, username_) == UserMatch::Plain && std::regex_match(user, harmless) ? user : username_;
}

// Of the neighbour with the fewest, so that a crowd of one's does not keep another waiting.
Gate::Guest* Gate::nextGuest() {
    std::map<Address, size_t> crowds;
    for (const auto& guest : guests_) {
        ++crowds[neighbour(guest.client->origin())];
    }
    Guest* next = nullptr;
    size_t fewest = SIZE_MAX;
    for (auto& guest : guests_) {
        const size_t crowd = crowds[neighbour(guest.client->origin())];
        if (!guest.introduced && crowd < fewest) {
            next = &guest;
            fewest = crowd;
        }
    }
    return next;
}

void Gate::introduceNext() {
    if (!opened_ || ending_ || served_ != nullptr || introduction_) {
        return;
    }
    const auto next = nextGuest();
    if (next == nullptr) {
        return;
    }
    introduction_ = std::make_shared<Introduction>(loop_, next->client);
    patience_ = answerPatience;
    awaitAnswer();
    introduction_->socket.async_connect(
        Local::endpoint(socket_), [this, mine = std::weak_ptr(introduction_)](Failed failed) {
            if (mine.expired()) {
                return;
            }
            if (failed) {
                sd_journal_print(LOG_WARNING, "session id: 0x%08x, the transport's socket: %s", session_,
                                 failed.message().c_str());
                end();
            } else {
                handOverRequest();
            }
        });
}

void Gate::handOverRequest() {
    Failed failed; // small: it waits for nothing
    asio::write(introduction_->socket, asio::buffer(introduction_->client->request().packet), failed);
    introduction_->socket.async_wait(Local::socket::wait_read, [this, mine = std::weak_ptr(introduction_)](Failed) {
        if (!mine.expired()) {
            readAnswer();
        }
    });
}

// A transport that takes the client says so in its log, too, and that line has the thread. One that does not tells the
// client why, and waits for its leaving.
void Gate::readAnswer() {
    std::array<char, 12> begin{};
    Failed failed;
    const size_t count = introduction_->socket.receive(asio::buffer(begin), Local::socket::message_peek, failed);
    constexpr char accepted = 2;
    if (count < begin.size() || begin.back() != accepted) {
        introduced(nullptr);
    }
}

void Gate::introduced(const LogEvent* answer) {
    const auto done = std::exchange(introduction_, nullptr);
    answerTimer_.cancel();
    done->socket.cancel();
    const auto guest = std::ranges::find(guests_, done->client, &Guest::client);
    if (guest != guests_.end()) {
        guest->introduced = true;
        guest->client->join(std::move(done->socket));
    }
    if (guest != guests_.end() && answer != nullptr) {
        if (Guest* gone = byThread(answer->thread)) {
            gone->thread = 0; // the number has been given away
        }
        guest->thread = answer->thread;
        guest->security = *answer;
        owner_.clientCame(*this, *guest->client);
    }
    introduceNext();
}

Gate::Guest* Gate::byThread(pid_t thread) {
    const auto found = std::ranges::find(guests_, thread, &Guest::thread);
    return found == guests_.end() ? nullptr : &*found;
}

void Gate::transportSaid(const LogEvent& event, const std::string& line) {
    if (ending_) {
        return; // whoever it lets in now would be sent away at once
    }
    if (event.kind == LogEvent::Listening && !opened_) {
        opened_ = true;
        answerTimer_.cancel();
        memory_ = transport_.memory();
        owner_.gateOpened(*this);
        introduceNext();
    } else if (event.kind == LogEvent::Negotiated && introduction_) {
        introduced(&event);
    } else if (event.kind == LogEvent::Failure && !opened_) { // later ones tell of clients that left, in many words
        sd_journal_print(LOG_WARNING, "session id: 0x%08x, transport: %s", session_, line.c_str());
    } else {
        clientSaid(event);
    }
}

void Gate::clientSaid(const LogEvent& event) {
    Guest* guest = pid() == 0 ? nullptr : byThread(event.thread); // the last words of one that has ended lead nowhere
    if (guest != nullptr && event.kind == LogEvent::Refused) {
        sd_journal_print(LOG_WARNING, "session id: 0x%08x, a client was refused: %s", session_,
                         guest->client->address().c_str());
    } else if (guest != nullptr && event.kind == LogEvent::Activated && served_ == nullptr) {
        serve(*guest);
    } else if (event.kind == LogEvent::Activated) { // its connection is closed already
        sd_journal_print(LOG_NOTICE, "session id: 0x%08x, another client came a moment late", session_);
    }
}

void Gate::serve(Guest& guest) {
    const auto client = guest.client;
    served_ = client.get();
    answerTimer_.cancel(); // whoever is being introduced is not let in
    client->authenticated();
    owner_.clientServed(*this, *client, guest.security);
    std::vector<std::shared_ptr<Client>> others;
    for (const auto& other : guests_) {
        if (other.client != client) {
            others.push_back(other.client);
        }
    }
    for (const auto& other : others) {
        other->close("another client was let in");
    }
}

void Gate::left(const Client* client) {
    std::erase_if(guests_, [client](const Guest& guest) { return guest.client.get() == client; });
    if (client == served_) {
        sd_journal_print(LOG_INFO, "session id: 0x%08x, the client has left", session_);
        end();
        return;
    }
    reportUnreadable(stateDir_); // why it may have left without a password
    if (guests_.empty() && opened_ && !ending_ && served_ == nullptr) {
        owner_.gateIdle(*this);
    }
}

void Gate::retire() {
    retireTimer_.start(retireLimit, [this] { end(); });
}

void Gate::end() {
    ending_ = true;
    transport_.end();
}

void Gate::transportEnded() { owner_.gateClosed(*this); }

} // namespace Doors
