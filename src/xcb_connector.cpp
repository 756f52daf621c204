// The service's own X client on one session's display: the connection and geometry.
#include "xcb_connector.h"

#include "exceptions.h"
#include "local_socket.h"
#include "logger.h"
#include "secret.h"

#include <poll.h>
#include <xcb/xcbext.h>

#include <array>
#include <system_error>

namespace Vard::Xcb {

using namespace std::chrono_literals;

namespace {

[[noreturn]] void fail(const char* call) {
    Syslog::error("%s: %s failed", "Connector", call);
    throw xcb_error("Connector");
}

} // namespace

Connector::Connector(uint32_t display, const Cookie* auth, FileDescriptor socket, std::chrono::milliseconds limit) {
    if (!socket) {
        // The file, not the abstract name of the same text: anybody could have taken that.
        socket.reset(Socket::unixConnect("/tmp/.X11-unix/X" + std::to_string(display)));
    }
    connect(display, auth, std::move(socket), Deadline::in(limit));
    readSetup();
}

Connector::~Connector() = default;

void Connector::connect(uint32_t display, const Cookie* auth, FileDescriptor socket, const Deadline& end) {
    std::string name = "MIT-MAGIC-COOKIE-1";
    Cookie data = auth != nullptr ? *auth : Cookie{};
    const Utils::WipeGuard guard(data);
    xcb_auth_info_t info{static_cast<int>(name.size()), name.data(), static_cast<int>(data.size()),
                         reinterpret_cast<char*>(data.data())};
    if (socket) {
        try {
            handshake(std::move(socket), auth != nullptr ? &info : nullptr, end);
        } catch (const std::system_error&) {
            connection_.reset(); // not without the channel
        }
    }
    if (!connection_ || ::xcb_connection_has_error(connection_.get()) != 0) {
        const std::string address = ":" + std::to_string(display);
        Syslog::error("%s: %s failed, addr: %s", "Connector", "xcb_connect", address.c_str());
        throw xcb_error("Connector");
    }
}

void Connector::handshake(FileDescriptor socket, xcb_auth_info_t* auth, const Deadline& end) {
    channel_ = std::make_unique<Channel>(std::move(socket));
    connection_.reset(channel_->connect(auth, end));
    if (!connection_ || ::xcb_connection_has_error(connection_.get()) != 0) {
        return;
    }
    // Asked for once here, as the first request, later from the library's memory: there it would be waited for.
    ::xcb_prefetch_extension_data(connection_.get(), &xcb_randr_id);
    ::xcb_flush(connection_.get());
    if (!channel_->exchange(1, end)) {
        connection_.reset();
        return;
    }
    const auto* randr = ::xcb_get_extension_data(connection_.get(), &xcb_randr_id);
    hasRandr_ = randr != nullptr && randr->present != 0;
}

void Connector::readSetup() {
    setup_ = ::xcb_get_setup(connection_.get());
    if (setup_ == nullptr) {
        fail("xcb_get_setup");
    }
    const auto roots = ::xcb_setup_roots_iterator(setup_);
    if (roots.rem <= 0 || roots.data == nullptr) {
        fail("xcb_setup_roots");
    }
    screen_ = roots.data;
    format_ = findFormat(screen_->root_depth);
    if (format_ == nullptr) {
        Syslog::error("%s: %s failed, error: %s", "Connector", "xcb_setup_pixmap_format",
                      "no format of the root's depth");
        throw xcb_error("Connector");
    }
}

xcb_window_t Connector::windowRoot() const { return screen_->root; }

uint8_t Connector::depth() const { return format_->depth; }

uint8_t Connector::bitsPerPixel() const { return format_->bits_per_pixel; }

const xcb_format_t* Connector::findFormat(uint8_t depth) const {
    for (auto it = ::xcb_setup_pixmap_formats_iterator(setup_); it.rem > 0; ::xcb_format_next(&it)) {
        if (it.data->depth == depth) {
            return it.data;
        }
    }
    return nullptr;
}

// After a missed answer, requests fail at once until something arrives from the server or a while has passed. Unread
// requests that fill its queue are not added to.
bool Connector::unresponsive() const {
    const auto ready = channel_->ready();
    return (ready & POLLOUT) == 0 || (!silentUntil_.passed() && (ready & POLLIN) == 0);
}

ReplyError<void> Connector::waitReply(unsigned sequence, const Deadline& end) {
    ::xcb_flush(connection_.get());
    while (channel_->exchange(sequence, end)) {
        void* reply = nullptr;
        xcb_generic_error_t* error = nullptr;
        if (::xcb_poll_for_reply(connection_.get(), sequence, &reply, &error) != 0) {
            silentUntil_ = {};
            return {ReplyPtr<void>(reply), ErrorPtr(error)};
        }
        if (end.passed()) {
            break; // errors of earlier requests could come without end
        }
    }
    ::xcb_discard_reply(connection_.get(), sequence);
    silentUntil_ = Deadline::in(silence);
    return {};
}

bool Connector::answers(std::chrono::milliseconds limit) {
    const auto ping = [](xcb_connection_t* conn) { return ::xcb_get_input_focus(conn); };
    return ask<xcb_get_input_focus_reply_t>(ping, Deadline::in(limit)).first != nullptr;
}

Rect Connector::getWindowGeometry(xcb_window_t win, std::chrono::milliseconds limit) {
    const auto end = Deadline::in(limit);
    const auto [size, sizeError] =
        ask<xcb_get_geometry_reply_t>([&](xcb_connection_t* conn) { return ::xcb_get_geometry(conn, win); }, end);
    if (!size) {
        toSyslogError(sizeError.get(), "getWindowGeometry", "xcb_get_geometry");
        return {};
    }
    const auto [place, placeError] = ask<xcb_translate_coordinates_reply_t>(
        [&](xcb_connection_t* conn) { return ::xcb_translate_coordinates(conn, win, windowRoot(), 0, 0); }, end);
    if (!place) {
        toSyslogError(placeError.get(), "getWindowGeometry", "xcb_translate_coordinates");
        return {};
    }
    return {place->dst_x, place->dst_y, size->width, size->height};
}

bool Connector::setWindowGeometry(xcb_window_t win, int16_t x, int16_t y, uint16_t width, uint16_t height) {
    constexpr uint16_t mask =
        XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT;
    const std::array<uint32_t, 4> values{static_cast<uint32_t>(x), static_cast<uint32_t>(y), width, height};
    xcb_void_cookie_t change{};
    // A request that has no answer is known to be done when the next one is answered.
    const auto [synced, syncError] = ask<xcb_get_input_focus_reply_t>([&](xcb_connection_t* conn) {
        change = ::xcb_configure_window_checked(conn, win, mask, values.data());
        return ::xcb_get_input_focus(conn);
    });
    const ErrorPtr error(synced ? ::xcb_request_check(connection_.get(), change) : nullptr);
    if (!synced && change.sequence != 0) {
        ::xcb_discard_reply(connection_.get(), change.sequence); // the library would keep its error
    }
    if (!synced || error) {
        toSyslogError(error.get(), "setWindowGeometry", "xcb_configure_window");
        return false;
    }
    Syslog::debug("%s: window id: 0x%08x, resize to: %ux%u", "setWindowGeometry", win, width, height);
    return true;
}

void Connector::toSyslogError(const xcb_generic_error_t* error, const char* func, const char* what) {
    if (error == nullptr) {
        Syslog::error("%s: %s failed", func, what);
        return;
    }
    Syslog::error("%s: %s failed, error code: %d, major: 0x%02x, minor: 0x%02x, sequence: %d", func, what,
                  error->error_code, error->major_code, error->minor_code, error->sequence);
}

} // namespace Vard::Xcb
