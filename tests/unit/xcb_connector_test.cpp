// The X client against a real server, running and stopped.
#include "xcb_connector.h"

#include "exceptions.h"
#include "local_socket.h"
#include "scratch.h"
#include "window_fitting.h"
#include "xauthority.h"

#include <sys/wait.h>

#include <csignal>

namespace {

using namespace Vard;
using Xcb::Connector;

constexpr unsigned display = 71;

/// A real X server that asks for a cookie.
class XcbConnector : public testing::Test {
protected:
    ~XcbConnector() override {
        ::xcb_disconnect(client);
        ::kill(server, SIGCONT);
        ::kill(server, SIGTERM);
        ::waitpid(server, nullptr, 0);
    }

    pid_t startServer() const {
        const auto record = xauthorityRecord("vardbox", display, cookie);
        const auto file = dir.write("auth", {record.begin(), record.end()});
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::execl("/usr/bin/Xvfb", "Xvfb", ":71", "-screen", "0", "800x600x24", "-auth", file.c_str(), "-noreset",
                    nullptr);
            ::_exit(127);
        }
        EXPECT_TRUE(Utils::waitSocketSec("/tmp/.X11-unix/X71", 30));
        return pid;
    }
    void goOn() {
        ::kill(server, SIGCONT);
        EXPECT_TRUE(Scratch::waitUntil([this] { return xcb.answers(); }));
    }
    xcb_window_t makeWindow(const Xcb::Rect& rect) {
        const auto window = ::xcb_generate_id(client);
        ::xcb_create_window(client, XCB_COPY_FROM_PARENT, window, xcb.windowRoot(), rect.x, rect.y, rect.width,
                            rect.height, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        ::xcb_map_window(client, window);
        sync();
        return window;
    }
    void setProperty(xcb_window_t window, const char* name, xcb_atom_t type, uint8_t format, uint32_t count,
                     const void* data) {
        ::xcb_change_property(client, XCB_PROP_MODE_REPLACE, window, xcb.getAtom(name, false), type, format, count,
                              data);
        sync();
    }
    void sync() { std::free(::xcb_get_input_focus_reply(client, ::xcb_get_input_focus(client), nullptr)); }
    std::vector<int> place(xcb_window_t window) {
        const auto rect = xcb.getWindowGeometry(window);
        return {rect.x, rect.y, rect.width, rect.height};
    }

    Scratch::Directory dir;
    Connector::Cookie cookie = Connector::Cookie(32, 0x5a);
    const pid_t server = startServer();
    Connector xcb{display, &cookie};
    xcb_auth_info_t auth{18, const_cast<char*>("MIT-MAGIC-COOKIE-1"), 32, reinterpret_cast<char*>(cookie.data())};
    xcb_connection_t* client = ::xcb_connect_to_display_with_auth_info(":71", &auth, nullptr);
};

TEST_F(XcbConnector, FitsApplicationsWindowsAndNothingElse) {
    const auto main = makeWindow({10, 20, 30, 40});
    const auto dialog = makeWindow({50, 60, 70, 80});
    const auto notice = makeWindow({90, 90, 50, 50});
    for (const auto window : {main, notice}) {
        setProperty(window, "WM_CLIENT_LEADER", XCB_ATOM_WINDOW, 32, 1, &window);
    }
    setProperty(dialog, "WM_CLIENT_LEADER", XCB_ATOM_WINDOW, 32, 1, &main);
    setProperty(notice, "WM_CLASS", XCB_ATOM_STRING, 8, 24, "fly-notifications\0Second");
    fitWindows(xcb);
    EXPECT_EQ(place(main), (std::vector<int>{0, 0, 800, 600}));
    EXPECT_EQ(place(dialog), (std::vector<int>{50, 60, 70, 80}));
    EXPECT_EQ(place(notice), (std::vector<int>{90, 90, 50, 50}));
    setProperty(xcb.windowRoot(), "_NET_CLIENT_LIST", XCB_ATOM_WINDOW, 32, 1, &main);
    EXPECT_EQ(xcb.getWindows(), std::vector<xcb_window_t>{main}) << "the window manager's list";
}

// The queue of a server that reads nothing takes some seventy requests, and the library waits for room without limit.
TEST_F(XcbConnector, StoppedServerCostsSecondsOnceAndIsNeverWrittenToWithoutRoom) {
    ::kill(server, SIGSTOP);
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 20; ++i) {
        EXPECT_FALSE(xcb.answers());
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20)) << "two for each";
    EXPECT_THROW(Connector(display, &cookie), xcb_error);
    goOn();
    Connector::silence = std::chrono::milliseconds(0);
    ::kill(server, SIGSTOP);
    for (int i = 0; i < 300; ++i) { // a hang is the test's time-out
        EXPECT_FALSE(xcb.answers(std::chrono::milliseconds(5)));
    }
    Connector::silence = std::chrono::milliseconds(5000);
    goOn();
}

} // namespace
