// One transport and the clients that came to it.
//
// The transport's log tells its clients apart by their threads. Which thread is whose is learned at the beginning: one
// client at a time is introduced, and the next when the transport has answered.
#pragma once

#include "client.h"
#include "options.h"
#include "owned_file.h"
#include "session_info.h"
#include "transport.h"

#include <list>
#include <memory>
#include <string>

namespace Doors {

/// A way into a session for one client: whoever shows the password first has it for himself, and with his leaving it
/// ends. Owns the transport and the files that belong to it. On the loop's thread.
class Gate : public Transport::Handler {
public:
    /// Whose gate it is. Must outlive it.
    struct Owner {
        virtual ~Owner() = default;
        /// The transport listens.
        virtual void gateOpened(Gate& gate) = 0;
        /// A client speaks the protocol; it has not shown a password yet.
        virtual void clientCame(Gate& gate, const Client& client) = 0;
        /// A client is served from now on, and no other.
        virtual void clientServed(Gate& gate, const Client& client, const LogEvent& security) = 0;
        /// Clients have come and gone, and none is there any more; nobody was served.
        virtual void gateIdle(Gate& gate) = 0;
        /// The transport is gone. May destroy the gate.
        virtual void gateClosed(Gate& gate) = 0;
    };

    /// Starts the transport. Throws std::system_error.
    Gate(asio::io_context& loop, const Options& options, uint32_t session, const SessionInfo& info, Owner& owner);
    ~Gate() override;
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    /// A client that wants in; it may have to wait until the transport listens.
    void enter(const std::shared_ptr<Client>& client);
    /// Clients are checked by this line from now on.
    void renewHashLine(const std::string& line);
    /// Somebody else has the session now: the service is about to end the transport. If it does not, the gate does.
    void retire();
    /// Ends the transport. gateClosed() follows.
    void end();

    /// The transport's process id.
    [[nodiscard]] pid_t pid() const { return transport_.pid(); }
    /// How many clients are there.
    [[nodiscard]] size_t crowd() const { return guests_.size(); }
    /// Whether a client may enter.
    [[nodiscard]] bool waits() const { return !ending_ && served_ == nullptr; }
    /// True when the clients who are there, if any, come from that neighbour.
    [[nodiscard]] bool belongsTo(const Address& from) const { return guests_.empty() || from_ == from; }
    /// True when its clients have made the transport so large that a fresh one is better: it gives nothing back.
    [[nodiscard]] bool swollen() const { return opened_ && transport_.memory() > 2 * memory_ + spareMemory; }
    /// True once the transport has listened.
    [[nodiscard]] bool opened() const { return opened_; }
    /// True when it has been told to end.
    [[nodiscard]] bool ending() const { return ending_; }

private:
    static constexpr size_t spareMemory = size_t{16} << 20;
    struct Guest {
        std::shared_ptr<Client> client;
        Crowd::Place place;
        bool introduced = false; ///< what it sends goes to the transport
        pid_t thread = 0; ///< of the transport, when that has taken it; else 0
        LogEvent security;
    };
    struct Introduction;

    void awaitAnswer();
    void noAnswer();
    [[nodiscard]] std::string spelling(const Client& client) const;
    Guest* nextGuest();
    void introduceNext();
    void handOverRequest();
    void readAnswer();
    void introduced(const LogEvent* answer);
    void serve(Guest& guest);
    void left(const Client* client);
    Guest* byThread(pid_t thread);
    void clientSaid(const LogEvent& event);
    void transportSaid(const LogEvent& event, const std::string& line) override;
    void transportEnded() override;

    asio::io_context& loop_;
    uint32_t session_;
    Owner& owner_;
    std::string username_;
    std::string hashLine_;
    const std::filesystem::path stateDir_;
    OwnedFile samFile_;
    std::string socket_;
    Transport transport_;
    bool opened_ = false;
    bool ending_ = false;
    size_t memory_ = 0; ///< of the transport when it had just begun to listen
    Address from_; ///< the neighbour of the first of the guests who are there
    Crowd crowd_;
    std::list<Guest> guests_; ///< their places go before the crowd
    const Client* served_ = nullptr;
    std::shared_ptr<Introduction> introduction_;
    Timer answerTimer_;
    int patience_ = 0; ///< so many times more an answer is awaited
    Timer retireTimer_;
};

} // namespace Doors
