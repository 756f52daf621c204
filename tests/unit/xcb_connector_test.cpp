// The X client against a real server, a stopped one, and servers that lie.
#include "xcb_connector.h"

#include "sockets.h"
#include "window_fitting.h"
#include "xauthority.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <thread>

namespace {

using namespace Vard;
using Xcb::Connector;

constexpr unsigned display = 71;

/// A real X server that asks for a cookie.
class Server {
public:
    Server() {
        const auto record = xauthorityRecord("vardbox", display, cookie);
        std::ofstream("/tmp/auth", std::ios::binary)
            .write(reinterpret_cast<const char*>(record.data()), static_cast<std::streamsize>(record.size()));
        pid = ::fork();
        if (pid == 0) {
            ::execl("/usr/bin/Xvfb", "Xvfb", ":71", "-screen", "0", "800x600x24", "-auth", "/tmp/auth", "-noreset",
                    nullptr);
            ::_exit(127);
        }
        EXPECT_TRUE(Utils::waitSocketSec("/tmp/.X11-unix/X71", 30));
    }
    ~Server() {
        ::kill(pid, SIGCONT);
        ::kill(pid, SIGTERM);
        ::waitpid(pid, nullptr, 0);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    Connector::Cookie cookie = Connector::Cookie(32, 0x5a);
    pid_t pid = -1;
};

class XcbConnector : public testing::Test {
protected:
    xcb_window_t makeWindow(int16_t x, int16_t y, uint16_t width, uint16_t height, uint32_t color = 0) {
        const auto window = ::xcb_generate_id(client);
        const std::array<uint32_t, 1> values{color};
        ::xcb_create_window(client, XCB_COPY_FROM_PARENT, window, xcb.windowRoot(), x, y, width, height, 0,
                            XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL, values.data());
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
    ~XcbConnector() override { ::xcb_disconnect(client); }

    Server server;
    Connector xcb{display, &server.cookie};
    xcb_auth_info_t auth{18, const_cast<char*>("MIT-MAGIC-COOKIE-1"), 32,
                         reinterpret_cast<char*>(server.cookie.data())};
    xcb_connection_t* client = ::xcb_connect_to_display_with_auth_info(":71", &auth, nullptr);
};

TEST_F(XcbConnector, DescribesTheScreenAndItsFormats) {
    EXPECT_EQ(xcb.depth(), 24);
    EXPECT_EQ(xcb.bitsPerPixel(), 32);
    EXPECT_EQ(xcb.bppFromDepth(24), 32);
    EXPECT_EQ(xcb.bppFromDepth(99), 0);
    EXPECT_EQ(xcb.depthFromBpp(99), 0);
    EXPECT_EQ(xcb.findFormat(99), nullptr);
    EXPECT_EQ(xcb.findVisual(0), nullptr);
    const auto root = xcb.getWindowGeometry(xcb.windowRoot());
    EXPECT_EQ(root.width, 800);
    EXPECT_EQ(root.height, 600);
    const auto sizes = xcb.getScreenSizes();
    ASSERT_FALSE(sizes.empty());
    EXPECT_EQ(sizes.front().width, 800);
    EXPECT_EQ(xcb.getWindowGeometry(0x12345).width, 0) << "no such window";
    EXPECT_FALSE(xcb.setWindowGeometry(0x12345, 0, 0, 10, 10));
}

TEST_F(XcbConnector, ReadsPropertiesOfAllKinds) {
    const auto window = makeWindow(10, 20, 30, 40);
    EXPECT_EQ(xcb.getAtom("NO_SUCH_ATOM_AT_ALL", true), 0U);
    EXPECT_EQ(xcb.getPropertyType(window, XCB_ATOM_WM_CLASS), 0U);
    setProperty(window, "WM_CLASS", XCB_ATOM_STRING, 8, 12, "first\0Second");
    setProperty(window, "_NET_WM_NAME", xcb.getAtom("UTF8_STRING", false), 8, 4, "Имя");
    setProperty(window, "WM_CLIENT_LEADER", XCB_ATOM_WINDOW, 32, 1, &window);
    EXPECT_EQ(xcb.getPropertyStringList(window, XCB_ATOM_WM_CLASS), (std::vector<std::string>{"first", "Second"}));
    EXPECT_EQ(xcb.getPropertyString(window, XCB_ATOM_WM_CLASS).size(), 12U);
    EXPECT_EQ(xcb.getWindowName(window).substr(0, 2), "И");
    EXPECT_EQ(xcb.getPropertyWindow(window, xcb.getAtom("WM_CLIENT_LEADER", true)), window);
    EXPECT_EQ(xcb.getPropertyWindow(window, XCB_ATOM_WM_CLASS), 0U) << "a text is no window";
    EXPECT_EQ(xcb.getWindows(), std::vector<xcb_window_t>{window}) << "the root's children";
    const auto other = makeWindow(0, 0, 5, 5);
    setProperty(xcb.windowRoot(), "_NET_CLIENT_LIST", XCB_ATOM_WINDOW, 32, 1, &other);
    EXPECT_EQ(xcb.getWindows(), std::vector<xcb_window_t>{other}) << "the window manager's list";
}

TEST_F(XcbConnector, PassFitsWhatLeadsItselfAndNothingElse) {
    const auto main = makeWindow(10, 20, 30, 40);
    const auto dialog = makeWindow(50, 60, 70, 80);
    setProperty(main, "WM_CLIENT_LEADER", XCB_ATOM_WINDOW, 32, 1, &main);
    setProperty(dialog, "WM_CLIENT_LEADER", XCB_ATOM_WINDOW, 32, 1, &main);
    fitWindows(xcb);
    const auto fitted = xcb.getWindowGeometry(main);
    EXPECT_EQ(std::vector<int>({fitted.x, fitted.y, fitted.width, fitted.height}), (std::vector<int>{0, 0, 800, 600}));
    const auto left = xcb.getWindowGeometry(dialog);
    EXPECT_EQ(std::vector<int>({left.x, left.y, left.width, left.height}), (std::vector<int>{50, 60, 70, 80}));
}

TEST_F(XcbConnector, CopiesPixelsInBands) {
    const auto window = makeWindow(0, 0, 800, 600, 0x123456);
    std::vector<uint8_t> pixels(size_t{800} * 600 * 4);
    const auto info = xcb.copyWindowPixmapTo(window, {0, 0, 800, 600}, pixels.data(), pixels.size());
    EXPECT_EQ(info.bytes, pixels.size());
    EXPECT_EQ(info.bitsPerPixel, 32);
    EXPECT_EQ(info.redMask, 0xff0000U);
    for (const size_t at : {size_t{0}, pixels.size() / 2, pixels.size() - 4}) {
        EXPECT_EQ(std::vector<int>({pixels[at], pixels[at + 1], pixels[at + 2]}), (std::vector<int>{0x56, 0x34, 0x12}));
    }
    EXPECT_THROW(xcb.copyWindowPixmapTo(window, {0, 0, 800, 600}, pixels.data(), pixels.size() - 1), xcb_error);
    EXPECT_THROW(xcb.copyWindowPixmapTo(window, {0, 0, 9000, 9000}, pixels.data(), pixels.size()), xcb_error);
    EXPECT_EQ(xcb.copyWindowPixmapTo(window, {0, 0, 0, 5}, pixels.data(), pixels.size()).bytes, 0U);
    EXPECT_EQ(xcb.copyWindowPixmapTo(window, {0, 0, 5, 5}, nullptr, 5).bytes, 0U);
}

TEST_F(XcbConnector, StoppedServerCostsSecondsOnceAndThenNothing) {
    ::kill(server.pid, SIGSTOP);
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(xcb.getWindowGeometry(xcb.windowRoot()).width, 0);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_THROW(Connector(display, &server.cookie), xcb_error);
    ::kill(server.pid, SIGCONT);
    while (xcb.getWindowGeometry(xcb.windowRoot()).width == 0) { // a hang is the test's time-out
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

// The queue of a server that reads nothing takes some seventy requests, and the library waits for room without limit.
TEST_F(XcbConnector, StoppedServerIsNeverWrittenToWithoutRoom) {
    Connector::silence = std::chrono::milliseconds(0);
    ::kill(server.pid, SIGSTOP);
    for (int i = 0; i < 300; ++i) { // a hang is the test's time-out
        EXPECT_FALSE(xcb.answers(std::chrono::milliseconds(5)));
    }
    Connector::silence = std::chrono::milliseconds(5000);
    ::kill(server.pid, SIGCONT);
    while (!xcb.answers()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

TEST_F(XcbConnector, WrongCookieIsRefused) {
    const Connector::Cookie wrong(32, 1);
    EXPECT_THROW(Connector(display, &wrong), xcb_error);
    EXPECT_THROW(Connector(99, &server.cookie), xcb_error) << "no server at all";
}

TEST(XcbLies, SetupsThatCannotBeUsedThrow) {
    // Little-endian setup: success, major 11; the lengths and counts decide what it lacks.
    const auto tryServer = [](std::string setup) {
        int ends[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        const FileDescriptor server(ends[1]);
        ASSERT_EQ(::write(server.get(), setup.data(), setup.size()), static_cast<ssize_t>(setup.size()));
        ::shutdown(server.get(), SHUT_WR);
        EXPECT_THROW(Connector(1, nullptr, FileDescriptor(ends[0])), xcb_error);
    };
    std::string noScreen(40, '\0');
    noScreen[0] = 1;
    noScreen[2] = 11;
    noScreen[6] = 8; // 32 more bytes, no screens and no formats in them
    tryServer(noScreen);
    tryServer(noScreen.substr(0, 20));
    tryServer(std::string(8, '\xff'));
    tryServer("");
}

} // namespace
