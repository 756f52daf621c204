// A real remote-desktop client, and the screen on which its picture appears.
#include "viewer.h"

#include "machine.h"

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace Bench {

using Clock = std::chrono::steady_clock;

Screen::Screen() : connection_(nullptr, xcb_disconnect) {
    Test::launch("Xvfb :20 -screen 0 800x600x24 -nolisten tcp");
    if (!Test::waitUntil([this] {
            connection_.reset(xcb_connect(":20", nullptr));
            return xcb_connection_has_error(connection_.get()) == 0;
        })) {
        throw std::runtime_error("no screen");
    }
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_.get())).data->root;
}

// The codec blurs the colour a little.
bool Screen::shows() const {
    const auto cookie = xcb_get_image(connection_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, root_, 400, 300, 1, 1, ~0U);
    const std::unique_ptr<xcb_get_image_reply_t, decltype(&std::free)> reply(
        xcb_get_image_reply(connection_.get(), cookie, nullptr), std::free);
    if (!reply) {
        throw std::runtime_error("the screen is gone");
    }
    const uint8_t* pixel = xcb_get_image_data(reply.get());
    const auto near = [](int value, int wanted) { return std::abs(value - wanted) < 13; };
    return near(pixel[0], 0x99) && near(pixel[1], 0x66) && near(pixel[2], 0x33);
}

bool Screen::waitForPicture(bool shown) const {
    const auto end = Clock::now() + std::chrono::seconds(20);
    while (shows() != shown) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

Viewer::Viewer(const Screen& screen, const std::string& place) : screen_(screen) {
    const auto begin = Clock::now();
    pid_ = Test::launch("DISPLAY=:20 HOME=/tmp exec xfreerdp /v:" + place +
                        " /u:alice /p:secret /cert:ignore /size:640x480");
    const bool shown = screen_.waitForPicture();
    seconds_ = shown ? std::chrono::duration<double>(Clock::now() - begin).count() : INFINITY;
}

Viewer::~Viewer() {
    ::kill(pid_, SIGTERM);
    screen_.waitForPicture(false);
}

} // namespace Bench
