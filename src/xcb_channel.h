// The bytes between the X library and a session's X server.
#pragma once

#include "deadline.h"
#include "file_descriptor.h"

#include <xcb/xcb.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Vard::Xcb {

/// Stands between the X library and the X server of a user, who may have put any program in its place. The library
/// waits without limit for the rest of an answer that has begun, allocates what an answer announces and keeps every
/// event and every answer that nobody asked for. So it gets the far end of a socket pair and reads there only whole
/// answers of a known size to its own requests: it never has to wait. One thread at a time.
class Channel {
public:
    /// The most bytes that one answer may have: a row of the widest window.
    static constexpr size_t answerSize = 132UL * 1024;
    /// About how many bytes of events and late answers are passed over in one wait, which fails then.
    static constexpr size_t skippedSize = 1024UL * 1024;

    /// Takes over the connected socket of the server. Throws std::system_error when no socket pair can be had.
    explicit Channel(FileDescriptor server);

    /// Greets the server until `end` and answers the library's connection, which the caller frees; null when the server
    /// refused, did not answer in time or cannot be believed. `auth` may be null. Call once.
    xcb_connection_t* connect(const xcb_auth_info_t* auth, const Deadline& end);
    /// Sends what the library has written, and waits until `end` for the reply to the request `sequence` or for an
    /// error of a request up to that; true when the library can read it. What has begun to arrive is kept for later.
    bool exchange(unsigned sequence, const Deadline& end);
    /// POLLIN when the server has sent something, POLLOUT when it has room for requests; 0 when it is lost.
    [[nodiscard]] short ready() const;

private:
    using SizeOf = size_t (*)(std::string_view); // what begins so has how many bytes

    bool await(SizeOf sizeOf, const Deadline& end);
    bool waitServer(const Deadline& end);
    void send();
    bool receive(SizeOf sizeOf);
    [[nodiscard]] bool isDue(uint16_t sequence) const;
    bool deliver();
    void giveUp(const char* reason);

    FileDescriptor server_;
    FileDescriptor near_; // our end of the pair, non-blocking use only
    FileDescriptor far_; // the library's, until it takes it
    std::string out_; // written by the library, not yet taken by the server
    std::string in_; // the packet that is arriving
    uint16_t answered_ = 0; // the last request whose answer was let through: each is answered once and in order
    bool lost_ = false;
};

} // namespace Vard::Xcb
