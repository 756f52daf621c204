// The service's own X client on one session's display.
#pragma once

#include "deadline.h"
#include "file_descriptor.h"
#include "xcb_channel.h"

#include <xcb/randr.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vard::Xcb {

/// Frees what the library allocated.
struct FreeDeleter {
    /// Null does nothing.
    void operator()(void* ptr) const { std::free(ptr); }
};

/// An owned X reply.
template <typename Reply>
using ReplyPtr = std::unique_ptr<Reply, FreeDeleter>;
/// An owned X error.
using ErrorPtr = std::unique_ptr<xcb_generic_error_t, FreeDeleter>;
/// A request's outcome.
template <typename Reply>
using ReplyError = std::pair<ReplyPtr<Reply>, ErrorPtr>;

/// Position and size of a window, as the protocol carries them.
struct Rect {
    int16_t x = 0;
    int16_t y = 0;
    uint16_t width = 0;
    uint16_t height = 0;
};

/// One RandR screen size: pixels and millimetres.
struct ScreenSize {
    uint16_t width = 0;
    uint16_t height = 0;
    uint16_t mwidth = 0;
    uint16_t mheight = 0;
};

/// What copyWindowPixmapTo copied.
struct PixmapInfo {
    size_t bytes = 0; ///< bytes written to the buffer; 0: nothing was copied
    uint8_t depth = 0; ///< bits that carry a colour
    uint8_t bitsPerPixel = 0; ///< bits from one pixel to the next
    uint32_t redMask = 0; ///< in a pixel, as the visual has it; the next two as well
    uint32_t greenMask = 0;
    uint32_t blueMask = 0;
};

/// An X client connection to one session's display. The X server belongs to the user, so nothing it answers is trusted
/// and no request waits for it longer than two seconds: one that is not answered in time fails like a missing reply.
/// Safe to use from several threads; one request at a time.
class Connector {
public:
    /// How long a request waits for its answer.
    static constexpr std::chrono::seconds answerLimit{2};
    /// How long a server that missed an answer is left alone. Only tests change it, before they connect.
    static inline std::chrono::milliseconds silence{5000};

    /// The secret that the server asks for, in raw bytes.
    using Cookie = std::vector<uint8_t>;

    /// Connects to display ":N" through `socket`, an already connected descriptor whose peer the caller has checked;
    /// with an empty descriptor, to the display's own address. `auth` is the MIT-MAGIC-COOKIE-1 data, may be null. Logs
    /// and throws xcb_error("Connector") on refusal, after `limit` or at a server without screen or pixmap format.
    Connector(uint32_t display, const Cookie* auth, FileDescriptor socket = {},
              std::chrono::milliseconds limit = answerLimit);
    /// Closes the connection.
    ~Connector();
    Connector(const Connector&) = delete;
    Connector& operator=(const Connector&) = delete;

    /// The root window of the first screen.
    [[nodiscard]] xcb_window_t windowRoot() const;
    /// Depth of the root window.
    [[nodiscard]] uint8_t depth() const;
    /// Bits per pixel of the root window.
    [[nodiscard]] uint8_t bitsPerPixel() const;
    /// The first pixmap format with that depth, or null.
    [[nodiscard]] const xcb_format_t* findFormat(uint8_t depth) const;
    /// The first visual of the screen with that id, or null. Required; nobody here calls it but copyWindowPixmapTo().
    [[nodiscard]] const xcb_visualtype_t* findVisual(xcb_visualid_t id) const;
    /// Bits per pixel of the matching format, 0 when none. Required as well, and called by as few.
    [[nodiscard]] uint8_t bppFromDepth(uint8_t depth) const;
    /// Depth of the first format with those bits per pixel, 0 when none. Required; nobody here calls it.
    [[nodiscard]] uint8_t depthFromBpp(uint8_t bpp) const;

    /// True when the server answers within `limit`. After a missed answer every request fails at once for a while, so a
    /// caller who has many servers to ask asks this first.
    bool answers(std::chrono::milliseconds limit = answerLimit);
    /// Size of the window, its position in root coordinates. Logged and all zero on failure, which takes no longer than
    /// `limit`.
    Rect getWindowGeometry(xcb_window_t win, std::chrono::milliseconds limit = answerLimit);
    /// Moves and resizes; true when the server accepted. Logged on failure.
    bool setWindowGeometry(xcb_window_t win, int16_t x, int16_t y, uint16_t width, uint16_t height);
    /// Copies the pixels of `rect` of a window into `buf` of `size` bytes, in bands below the server's request limit.
    /// Bytes 0 for an empty rectangle or buffer. Throws xcb_error("copyWindowPixmapTo") when the server refuses or the
    /// buffer is too small. Required; nobody here calls it.
    PixmapInfo copyWindowPixmapTo(xcb_window_t win, const Rect& rect, uint8_t* buf, size_t size);

    /// The atom of that name, 0 when it does not exist or the request failed.
    xcb_atom_t getAtom(std::string_view name, bool onlyIfExists);
    /// The property's reply, empty on failure. `length` is in 32-bit units.
    ReplyPtr<xcb_get_property_reply_t> getPropertyAnyType(xcb_window_t win, xcb_atom_t prop, xcb_atom_t type,
                                                          uint32_t length);
    /// The property's type, 0 when the window has no such property.
    xcb_atom_t getPropertyType(xcb_window_t win, xcb_atom_t prop);
    /// The window id that the property holds, 0 when none.
    xcb_window_t getPropertyWindow(xcb_window_t win, xcb_atom_t prop);
    /// The property as one string, at most 4096 bytes; empty when none.
    std::string getPropertyString(xcb_window_t win, xcb_atom_t prop);
    /// The property split at its NUL bytes; a last NUL ends the last string.
    std::vector<std::string> getPropertyStringList(xcb_window_t win, xcb_atom_t prop);
    /// The window's _NET_WM_NAME of type UTF8_STRING, else empty.
    std::string getWindowName(xcb_window_t win);
    /// The top-level client windows: the window manager's list, or the root's children.
    std::vector<xcb_window_t> getWindows();
    /// The screen sizes that RandR offers, in the server's order; empty when it offers none.
    std::vector<ScreenSize> getScreenSizes();

    /// Logs an X error, or a missing reply when `error` is null.
    static void toSyslogError(const xcb_generic_error_t* error, const char* func, const char* what);

private:
    struct Disconnect {
        void operator()(xcb_connection_t* conn) const { xcb_disconnect(conn); }
    };

    // Sends one request and waits until `end` for its answer; both empty when there was none in time. Another thread
    // may be waiting for its own answer.
    template <typename Reply, typename Send>
    ReplyError<Reply> ask(Send send, const Deadline& end = Deadline::in(answerLimit)) {
        // By the system's clock, since the thread sanitizer does not see locks that wait by another. A clock that is
        // set back does no harm: whoever holds the lock lets it go in time.
        const std::unique_lock lock(mutex_, std::chrono::system_clock::now() + end.left());
        if (!lock || unresponsive()) {
            return {};
        }
        xcb_connection_t* const connection = connection_.get();
        auto [reply, error] = waitReply(send(connection).sequence, end);
        return {ReplyPtr<Reply>(static_cast<Reply*>(reply.release())), std::move(error)};
    }
    [[nodiscard]] bool unresponsive() const;
    ReplyError<void> waitReply(unsigned sequence, const Deadline& end);
    void connect(uint32_t display, const Cookie* auth, FileDescriptor socket, const Deadline& end);
    void handshake(FileDescriptor socket, xcb_auth_info_t* auth, const Deadline& end);
    void readSetup();
    void describe(PixmapInfo& info, const xcb_get_image_reply_t& reply) const;

    std::unique_ptr<Channel> channel_;
    std::unique_ptr<xcb_connection_t, Disconnect> connection_;
    const xcb_setup_t* setup_ = nullptr;
    const xcb_screen_t* screen_ = nullptr;
    const xcb_format_t* format_ = nullptr;
    bool hasRandr_ = false;
    std::timed_mutex mutex_;
    Deadline silentUntil_; // after a missed answer nobody is made to wait again so soon
};

} // namespace Vard::Xcb
