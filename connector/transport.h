// One process of the transport program.
#pragma once

#include "events.h"
#include "file_descriptor.h"
#include "transport_log.h"

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

namespace Doors {

/// What a transport is started with.
struct TransportSettings {
    std::string program; ///< its path
    std::string bind; ///< empty for all addresses
    uint16_t port = 0;
    uint32_t display = 0; ///< the number of the display that it shows
    std::string xauthfile; ///< for that display
    std::string samFile; ///< with the hash line that clients are checked by
    std::string stateDir; ///< with the certificate
};

/// Its command line, the program first.
std::vector<std::string> transportArguments(const TransportSettings& settings);
/// Its whole environment, as NAME=value.
std::vector<std::string> transportEnvironment(const TransportSettings& settings);

/// A running transport. It ends with the connector, however that ends; with the object, at once.
class Transport {
public:
    /// Who hears of it, on the event loop's thread.
    struct Handler {
        virtual ~Handler() = default;
        /// A line of its log.
        virtual void transportSaid(const LogEvent& event, const std::string& line) = 0;
        /// It is gone and reaped. May destroy the object.
        virtual void transportEnded() = 0;
    };

    /// Starts it. Throws std::system_error.
    Transport(sd_event* loop, const TransportSettings& settings, Handler& handler);
    ~Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    /// Its process id; 0 once it is reaped.
    [[nodiscard]] pid_t pid() const { return child_.pid; }
    /// Tells it to end; after a few seconds it is killed. transportEnded() follows.
    void end();
    /// True when a thread of it is still there.
    [[nodiscard]] bool hasThread(pid_t thread) const;

private:
    struct Child {
        pid_t pid = 0; ///< 0 once reaped
        Child() = default;
        ~Child();
        Child(const Child&) = delete;
        Child& operator=(const Child&) = delete;
    };
    void start(const TransportSettings& settings, int output);
    void readOutput();
    void takeLines();
    void ended();

    sd_event* loop_;
    Handler& handler_;
    Child child_;
    Vard::FileDescriptor output_;
    std::string unread_;
    std::unique_ptr<EventSource> outputSource_;
    std::unique_ptr<EventSource> endSource_;
    std::unique_ptr<EventSource> killTimer_;
};

} // namespace Doors
