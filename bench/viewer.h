// A real remote-desktop client, and the screen on which its picture appears.
#pragma once

#include <xcb/xcb.h>

#include <memory>
#include <string>

namespace Bench {

/// A screen of its own for the clients, with the picture to be waited for: a session whose background is of this
/// colour.
class Screen {
public:
    static constexpr const char* colour = "#336699";

    Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    /// Waits until the session's background is to be seen, or not to be seen; looks every millisecond. False after 20
    /// seconds.
    bool waitForPicture(bool shown = true) const;

private:
    [[nodiscard]] bool shows() const;

    std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection_;
    xcb_window_t root_ = 0;
};

/// A client at work, on that screen, as alice.
class Viewer {
public:
    /// Where to: "ADDRESS:PORT", or "[ADDRESS]" for the usual one.
    Viewer(const Screen& screen, const std::string& place);
    /// Ends it, and waits until its picture has gone.
    ~Viewer();
    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

    /// The seconds from its start to the picture; infinite when it got none.
    [[nodiscard]] double seconds() const { return seconds_; }

private:
    const Screen& screen_;
    int pid_;
    double seconds_;
};

} // namespace Bench
