// The bytes between the X library and a session's X server.
#include "xcb_channel.h"

#include "logger.h"
#include "secret.h"
#include "xcb_setup.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

namespace Vard::Xcb {

namespace {

constexpr uint8_t replyType = 1;
constexpr uint8_t errorType = 0;

/// The fixed structure that the bytes begin with; they must be as many.
template <typename T>
T head(std::string_view bytes) {
    T value;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

size_t setupSize(std::string_view begun) {
    constexpr size_t fixed = sizeof(xcb_setup_failed_t);
    return begun.size() < fixed ? fixed : fixed + size_t{head<xcb_setup_failed_t>(begun).length} * 4;
}

size_t packetSize(std::string_view begun) {
    constexpr size_t fixed = 32; // of all replies, errors and events
    if (begun.size() < fixed) {
        return fixed;
    }
    const auto packet = head<xcb_generic_reply_t>(begun);
    const bool longer = packet.response_type == replyType || (packet.response_type & 0x7fU) == XCB_GE_GENERIC;
    return fixed + (longer ? size_t{packet.length} * 4 : 0);
}

void appendPadded(std::string& text, const char* data, int length) {
    text.append(data, static_cast<size_t>(length));
    text.resize((text.size() + 3) / 4 * 4);
}

/// What a client says first, byte for byte as the library does.
std::string greeting(const xcb_auth_info_t* auth) {
    xcb_setup_request_t request{};
    request.byte_order = 'l';
    request.protocol_major_version = X_PROTOCOL;
    request.protocol_minor_version = X_PROTOCOL_REVISION;
    if (auth != nullptr) {
        request.authorization_protocol_name_len = static_cast<uint16_t>(auth->namelen);
        request.authorization_protocol_data_len = static_cast<uint16_t>(auth->datalen);
    }
    std::string text(reinterpret_cast<const char*>(&request), sizeof request);
    if (auth != nullptr) {
        appendPadded(text, auth->name, auth->namelen);
        appendPadded(text, auth->data, auth->datalen);
    }
    return text;
}

/// Appends what waits in the socket.
void drain(int fd, std::string& text) {
    std::array<char, 4096> piece;
    for (ssize_t got = 0; (got = ::recv(fd, piece.data(), piece.size(), MSG_DONTWAIT)) > 0;) {
        text.append(piece.data(), static_cast<size_t>(got));
    }
}

bool wouldBlock() { return errno == EAGAIN || errno == EINTR; }

} // namespace

Channel::Channel(FileDescriptor server) : server_(std::move(server)) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    near_.reset(ends[0]);
    far_.reset(ends[1]);
    // The longest answer must fit in whole, whatever the system's usual size is.
    const int room = 2 * answerSize;
    if (::setsockopt(near_.get(), SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) != 0) {
        ::setsockopt(near_.get(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    }
}

xcb_connection_t* Channel::connect(const xcb_auth_info_t* auth, const Deadline& end) {
    out_ = greeting(auth);
    std::string again(out_.size(), '\0');
    if (!await(setupSize, end) || head<xcb_setup_failed_t>(in_).status != 1 || !setupHolds(in_)) {
        return nullptr;
    }
    // The library greets too, and then waits for the setup; one that came before, it would take for an answer.
    const Utils::WipeGuard guard(again); // the cookie
    const std::jthread answering([&] {
        while (::recv(near_.get(), again.data(), again.size(), MSG_WAITALL) < 0 && errno == EINTR) {
        }
        deliver();
    });
    return ::xcb_connect_to_fd(far_.release(), const_cast<xcb_auth_info_t*>(auth));
}

bool Channel::exchange(unsigned sequence, const Deadline& end) {
    const auto wanted = static_cast<uint16_t>(sequence);
    for (size_t skipped = 0; skipped <= skippedSize && await(packetSize, end); in_.clear()) {
        if (isDue(wanted)) {
            answered_ = head<xcb_generic_reply_t>(in_).sequence;
            return deliver();
        }
        skipped += in_.size();
    }
    return false;
}

short Channel::ready() const {
    pollfd entry{lost_ ? -1 : server_.get(), POLLIN | POLLOUT, 0};
    ::poll(&entry, 1, 0);
    return entry.revents;
}

// True when in_ holds a whole packet.
bool Channel::await(SizeOf sizeOf, const Deadline& end) {
    while (!lost_) {
        send();
        if (receive(sizeOf)) {
            return true;
        }
        if (!lost_ && !waitServer(end)) {
            return false;
        }
    }
    return false;
}

bool Channel::waitServer(const Deadline& end) {
    pollfd entry{server_.get(), static_cast<short>(out_.empty() ? POLLIN : POLLIN | POLLOUT), 0};
    return !end.passed() && ::poll(&entry, 1, end.pollTime()) != 0;
}

void Channel::send() {
    drain(near_.get(), out_);
    if (out_.empty()) {
        return;
    }
    const auto sent = ::send(server_.get(), out_.data(), out_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent > 0) {
        out_.erase(0, static_cast<size_t>(sent));
        Utils::wipe(out_.data() + out_.size(), static_cast<size_t>(sent)); // the greeting has the cookie
    } else if (!wouldBlock()) {
        lost_ = true;
    }
}

bool Channel::receive(SizeOf sizeOf) {
    std::array<char, 16384> piece;
    for (size_t size = 0; (size = sizeOf(in_)) > in_.size();) {
        if (size > answerSize) {
            giveUp("too long an answer");
            return false;
        }
        const size_t part = std::min(size - in_.size(), piece.size());
        const auto got = ::recv(server_.get(), piece.data(), part, MSG_DONTWAIT);
        if (got <= 0) {
            lost_ = got == 0 || !wouldBlock();
            return false;
        }
        in_.append(piece.data(), static_cast<size_t>(got));
    }
    return true;
}

// A reply only to the request that is waited for: the library aborts the process over one to a request that has none.
bool Channel::isDue(uint16_t sequence) const {
    const auto packet = head<xcb_generic_reply_t>(in_);
    const auto ahead = static_cast<uint16_t>(packet.sequence - answered_);
    const auto due = static_cast<uint16_t>(sequence - answered_);
    return ahead != 0 &&
           (packet.response_type == replyType ? ahead == due : packet.response_type == errorType && ahead <= due);
}

// Whole or not at all: the library would wait for the rest of a part. It has read all that came before.
bool Channel::deliver() {
    const auto sent = ::send(near_.get(), in_.data(), in_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent != static_cast<ssize_t>(in_.size())) {
        giveUp("no room for its answer");
    }
    in_.clear();
    return !lost_;
}

void Channel::giveUp(const char* reason) {
    Syslog::error("%s: X server given up: %s", "Connector", reason);
    ::shutdown(server_.get(), SHUT_RDWR);
    ::shutdown(near_.get(), SHUT_RDWR);
    lost_ = true;
}

} // namespace Vard::Xcb
