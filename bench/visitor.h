// One connection to the door, made by hand.
#pragma once

#include "file_descriptor.h"

#include <cstdint>
#include <string>

namespace Bench {

/// The first packet of a client, with the text that names a user or a session.
std::string connectionRequest(const std::string& text);
inline std::string askFor(const std::string& user) { return connectionRequest("Cookie: mstshash=" + user); }
inline std::string askFor(uint32_t session) { return connectionRequest("vard-session=" + std::to_string(session)); }

/// A connection to a port of this machine, from 127.0.0.1.
class Visitor {
public:
    /// Throws std::system_error when there is no way in.
    explicit Visitor(uint16_t port);

    void say(const std::string& bytes) const;
    /// Waits for so many bytes; false when the connection has ended before.
    [[nodiscard]] bool hear(size_t count) const;
    /// Waits for the transport's answer to the first packet; false when there is none to come.
    [[nodiscard]] bool hearAnswer() const { return hear(19); }
    /// How many bytes come in so many seconds.
    [[nodiscard]] size_t listenFor(double seconds) const;
    /// Whether the connection has ended.
    [[nodiscard]] bool sentAway() const;

private:
    Vard::FileDescriptor socket_;
};

} // namespace Bench
