// One process of the transport program.
#pragma once

#include "loop.h"
#include "transport_log.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace Doors {

/// What a transport is started with.
struct TransportSettings {
    std::string program; ///< its path
    std::string socket; ///< where it listens; made by it, for this user alone
    uint32_t display = 0; ///< the number of the display that it shows
    std::string xauthfile; ///< for that display
    std::string samFile; ///< with the hash line that clients are checked by
    std::string stateDir; ///< with the certificate
};

/// Its command line, the program first.
std::vector<std::string> transportArguments(const TransportSettings& settings);
/// Its whole environment, as NAME=value.
std::vector<std::string> transportEnvironment(const TransportSettings& settings);

/// A running transport, within limits of memory and descriptors, and the first to go when the machine's memory ends. It
/// ends with the connector, however that ends; with the object, at once. On the loop's thread.
class Transport {
public:
    /// Who hears of it.
    struct Handler {
        virtual ~Handler() = default;
        /// A line of its log.
        virtual void transportSaid(const LogEvent& event, const std::string& line) = 0;
        /// It is gone and reaped. May destroy the object.
        virtual void transportEnded() = 0;
    };

    /// Starts it. Throws std::system_error.
    Transport(asio::io_context& loop, const TransportSettings& settings, Handler& handler);
    ~Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    /// Its process id; 0 once it is reaped.
    [[nodiscard]] pid_t pid() const { return child_.pid; }
    /// The memory that it has in use, in bytes; 0 when it cannot be told.
    [[nodiscard]] size_t memory() const;
    /// Tells it to end; after a few seconds it is killed. transportEnded() follows.
    void end();

private:
    struct Child {
        pid_t pid = 0; ///< 0 once reaped
        Child() = default;
        ~Child();
        Child(const Child&) = delete;
        Child& operator=(const Child&) = delete;
    };
    void start(const TransportSettings& settings, int output);
    void waitForOutput();
    bool readOutput();
    void takeLines();
    void ended();

    Handler& handler_;
    Child child_;
    Descriptor output_;
    Descriptor process_; ///< can be read when the process has ended
    std::string unread_;
    Timer killTimer_;
    bool told_ = false; ///< to end
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace Doors
