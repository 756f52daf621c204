// What an X server says of itself when a client connects.
#include "xcb_setup.h"

#include <xcb/xproto.h>

#include <cstring>
#include <optional>

namespace Vard::Xcb {

namespace {

constexpr uint16_t leastRequestLength =
    4096; // by the protocol; below, the library asks for more and waits without limit

/// Takes one thing after the other from the front of bytes that may end too early.
class Walk {
public:
    explicit Walk(std::string_view bytes) : left_(bytes) {}

    bool skip(size_t size) {
        if (size > left_.size()) {
            return false;
        }
        left_.remove_prefix(size);
        return true;
    }
    template <typename T>
    std::optional<T> take() {
        T value;
        if (sizeof value > left_.size()) {
            return std::nullopt;
        }
        std::memcpy(&value, left_.data(), sizeof value);
        left_.remove_prefix(sizeof value);
        return value;
    }

private:
    std::string_view left_;
};

bool takeFormats(Walk& walk, unsigned count) {
    for (; count > 0; --count) {
        const auto format = walk.take<xcb_format_t>();
        if (!format || format->bits_per_pixel == 0) {
            return false;
        }
    }
    return true;
}

bool takeScreen(Walk& walk) {
    const auto screen = walk.take<xcb_screen_t>();
    for (unsigned depths = screen ? screen->allowed_depths_len : 0; depths > 0; --depths) {
        const auto depth = walk.take<xcb_depth_t>();
        if (!depth || !walk.skip(depth->visuals_len * sizeof(xcb_visualtype_t))) {
            return false;
        }
    }
    return screen.has_value();
}

} // namespace

bool setupHolds(std::string_view bytes) {
    Walk walk(bytes);
    const auto setup = walk.take<xcb_setup_t>();
    return setup && bytes.size() == 8 + size_t{setup->length} * 4 &&
           setup->maximum_request_length >= leastRequestLength && walk.skip((setup->vendor_len + size_t{3}) / 4 * 4) &&
           takeFormats(walk, setup->pixmap_formats_len) && (setup->roots_len == 0 || takeScreen(walk));
}

} // namespace Vard::Xcb
