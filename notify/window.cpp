// A notice in a plain window.
#include "window.h"

#include "appearance.h"
#include "deadline.h"

#include <cairo/cairo-xcb.h>
#include <poll.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <span>
#include <stdexcept>
#include <string_view>

namespace Vard {

namespace {

using namespace std::string_view_literals;

constexpr auto windowClass = "vard_notify\0vard_notify\0"sv;

// Pixels.
constexpr int largestWidth = 400;
constexpr int margin = 16;
constexpr int gap = 8;

struct Release {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
    // The device keeps resources of the connection until it is finished.
    void operator()(cairo_surface_t* surface) const {
        cairo_device_finish(cairo_surface_get_device(surface));
        cairo_surface_destroy(surface);
    }
    void operator()(cairo_t* cairo) const { cairo_destroy(cairo); }
    void operator()(void* block) const { std::free(block); }
};
template <typename Object>
using Owned = std::unique_ptr<Object, Release>;

class Window {
public:
    explicit Window(const Notice& notice);

    /// Shows it until the user closes it or the time has come.
    void showUntil(const Deadline& end);

private:
    static Owned<xcb_connection_t> connect(int& screen);
    static const xcb_screen_t& findScreen(xcb_connection_t* connection, int number);
    xcb_visualtype_t* findVisual() const;
    xcb_atom_t atom(std::string_view name) const;
    template <typename Items>
    void setProperty(xcb_atom_t name, xcb_atom_t type, const Items& items) const;
    [[nodiscard]] int left() const { return screen_.width_in_pixels - margin - appearance_.width(); }
    bool isNotice(xcb_window_t window) const;
    [[nodiscard]] int freeTop() const;
    void create();
    void describe(const std::string& title) const;
    void giveHints() const;
    void draw() const;
    bool handleEvents() const;
    bool handle(const xcb_generic_event_t& event) const;

    int screenNumber_ = 0;
    Owned<xcb_connection_t> connection_;
    const xcb_screen_t& screen_;
    Appearance appearance_;
    xcb_window_t window_;
    int top_ = margin;
    xcb_atom_t deleteWindow_;
    Owned<cairo_surface_t> surface_;
};

Owned<xcb_connection_t> Window::connect(int& screen) {
    Owned<xcb_connection_t> connection(xcb_connect(nullptr, &screen));
    if (xcb_connection_has_error(connection.get()) != 0) {
        const char* const display = std::getenv("DISPLAY");
        throw std::runtime_error(display == nullptr || *display == '\0'
                                     ? "DISPLAY is not set"
                                     : std::string("cannot connect to display ") + display);
    }
    return connection;
}

const xcb_screen_t& Window::findScreen(xcb_connection_t* connection, int number) {
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (; number > 0 && screens.rem > 1; --number) {
        xcb_screen_next(&screens);
    }
    if (screens.rem == 0) {
        throw std::runtime_error("the display has no screen");
    }
    return *screens.data;
}

xcb_visualtype_t* Window::findVisual() const {
    for (auto depths = xcb_screen_allowed_depths_iterator(&screen_); depths.rem > 0; xcb_depth_next(&depths)) {
        for (auto visuals = xcb_depth_visuals_iterator(depths.data); visuals.rem > 0; xcb_visualtype_next(&visuals)) {
            if (visuals.data->visual_id == screen_.root_visual) {
                return visuals.data;
            }
        }
    }
    throw std::runtime_error("the display has no visual");
}

Window::Window(const Notice& notice)
    : connection_(connect(screenNumber_)),
      screen_(findScreen(connection_.get(), screenNumber_)),
      appearance_(notice, std::min(largestWidth, screen_.width_in_pixels - 2 * margin),
                  screen_.height_in_pixels - 2 * margin),
      window_(xcb_generate_id(connection_.get())),
      deleteWindow_(atom("WM_DELETE_WINDOW")) {
    // Notices that come together would find the same room: the server serves one of them after the other.
    xcb_grab_server(connection_.get());
    top_ = freeTop();
    create();
    describe(notice.title);
    giveHints();
    xcb_ungrab_server(connection_.get());
    surface_.reset(
        cairo_xcb_surface_create(connection_.get(), window_, findVisual(), appearance_.width(), appearance_.height()));
}

bool Window::isNotice(xcb_window_t window) const {
    const auto cookie =
        xcb_get_property(connection_.get(), 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, windowClass.size());
    const Owned<xcb_get_property_reply_t> reply(xcb_get_property_reply(connection_.get(), cookie, nullptr));
    return reply && windowClass == std::string_view(static_cast<const char*>(xcb_get_property_value(reply.get())),
                                                    static_cast<size_t>(xcb_get_property_value_length(reply.get())));
}

// Below the notices that can be seen already, and at the top again when no room is left there. A window manager that
// puts windows into frames places them by itself.
int Window::freeTop() const {
    const Owned<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(connection_.get(), xcb_query_tree(connection_.get(), screen_.root), nullptr));
    if (!tree) {
        return margin;
    }
    int top = margin;
    for (const auto window : std::span(xcb_query_tree_children(tree.get()), tree->children_len)) {
        const Owned<xcb_get_geometry_reply_t> place(
            xcb_get_geometry_reply(connection_.get(), xcb_get_geometry(connection_.get(), window), nullptr));
        if (place && isNotice(window)) {
            top = std::max(top, place->y + place->height + gap);
        }
    }
    return top + appearance_.height() + margin <= screen_.height_in_pixels ? top : margin;
}

void Window::create() {
    const std::array<uint32_t, 2> values{
        screen_.white_pixel, XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_KEY_PRESS};
    xcb_create_window(connection_.get(), XCB_COPY_FROM_PARENT, window_, screen_.root, static_cast<int16_t>(left()),
                      static_cast<int16_t>(top_), static_cast<uint16_t>(appearance_.width()),
                      static_cast<uint16_t>(appearance_.height()), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      screen_.root_visual, XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values.data());
}

xcb_atom_t Window::atom(std::string_view name) const {
    const auto cookie = xcb_intern_atom(connection_.get(), 0, static_cast<uint16_t>(name.size()), name.data());
    const Owned<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection_.get(), cookie, nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

template <typename Items>
void Window::setProperty(xcb_atom_t name, xcb_atom_t type, const Items& items) const {
    xcb_change_property(connection_.get(), XCB_PROP_MODE_REPLACE, window_, name, type, 8 * sizeof(*items.data()),
                        static_cast<uint32_t>(items.size()), items.data());
}

void Window::describe(const std::string& title) const {
    const auto utf8 = atom("UTF8_STRING");
    setProperty(XCB_ATOM_WM_NAME, utf8, title);
    setProperty(atom("_NET_WM_NAME"), utf8, title);
    setProperty(XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, windowClass);
    setProperty(atom("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, std::array{atom("_NET_WM_WINDOW_TYPE_NOTIFICATION")});
    setProperty(atom("WM_PROTOCOLS"), XCB_ATOM_ATOM, std::array{deleteWindow_});
}

// A window manager shall leave place and size alone, and the focus where the user is typing: a key closes the notice.
void Window::giveHints() const {
    constexpr uint32_t inputHint = 1;
    constexpr uint32_t userPositionAndFixedSize = 1 | 16 | 32;
    const auto x = static_cast<uint32_t>(left());
    const auto y = static_cast<uint32_t>(top_);
    const auto width = static_cast<uint32_t>(appearance_.width());
    const auto height = static_cast<uint32_t>(appearance_.height());
    setProperty(XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS, std::array<uint32_t, 9>{inputHint, 0});
    setProperty(XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS,
                std::array<uint32_t, 18>{userPositionAndFixedSize, x, y, width, height, width, height, width, height});
}

void Window::draw() const {
    const Owned<cairo_t> cairo(cairo_create(surface_.get()));
    appearance_.draw(cairo.get());
    cairo_surface_flush(surface_.get());
}

/// True when the event closes the window.
bool Window::handle(const xcb_generic_event_t& event) const {
    switch (event.response_type & 0x7F) {
        case XCB_EXPOSE:
            draw();
            return false;
        case XCB_BUTTON_PRESS:
        case XCB_KEY_PRESS:
            return true;
        case XCB_CLIENT_MESSAGE:
            return reinterpret_cast<const xcb_client_message_event_t&>(event).data.data32[0] == deleteWindow_;
        default:
            return false;
    }
}

/// True when one of the events that have come closes the window.
bool Window::handleEvents() const {
    while (const Owned<xcb_generic_event_t> event{xcb_poll_for_event(connection_.get())}) {
        if (handle(*event)) {
            return true;
        }
    }
    if (xcb_connection_has_error(connection_.get()) != 0) {
        throw std::runtime_error("connection to the display lost");
    }
    return false;
}

void Window::showUntil(const Deadline& end) {
    xcb_map_window(connection_.get(), window_);
    while (!handleEvents()) {
        xcb_flush(connection_.get());
        pollfd entry{xcb_get_file_descriptor(connection_.get()), POLLIN, 0};
        if (::poll(&entry, 1, end.pollTime()) == 0) {
            return;
        }
    }
}

} // namespace

void showWindow(const Notice& notice) {
    Window(notice).showUntil(Deadline::in(std::chrono::seconds(notice.critical() ? 30 : 10)));
}

} // namespace Vard
