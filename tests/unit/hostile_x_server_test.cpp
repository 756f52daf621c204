// The X client against programs that only pretend to be an X server.
#include "xcb_connector.h"

#include "exceptions.h"
#include "scratch.h"
#include "window_fitting.h"
#include "xcb_setup.h"

#include <sys/socket.h>
#include <xcb/xproto.h>

#include <fstream>
#include <functional>
#include <future>
#include <thread>

namespace {

using namespace Vard;
using namespace std::chrono_literals;
using Xcb::Connector;

template <typename T>
std::string bytesOf(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

/// A setup of one screen of depth 24 with one visual; what each part says can be falsified.
struct Claims {
    Claims() {
        fixed.status = 1;
        fixed.protocol_major_version = 11;
        fixed.maximum_request_length = 65535;
        fixed.roots_len = 1;
        fixed.pixmap_formats_len = 1;
        format.depth = screen.root_depth = depth.depth = 24;
        format.bits_per_pixel = 32;
        screen.root = 1;
        screen.allowed_depths_len = 1;
        depth.visuals_len = 1;
    }
    std::string bytes() {
        const auto rest = bytesOf(format) + bytesOf(screen) + bytesOf(depth) + visuals;
        fixed.length = static_cast<uint16_t>((sizeof fixed + rest.size() - 8) / 4);
        return bytesOf(fixed) + rest;
    }

    xcb_setup_t fixed{};
    xcb_format_t format{};
    xcb_screen_t screen{};
    xcb_depth_t depth{};
    std::string visuals = std::string(sizeof(xcb_visualtype_t), '\0');
};

/// A server in a thread, on one end of a socket pair: greets with a setup, knows no extension, then plays its part.
class Pretender {
public:
    using Part = std::function<void(Pretender&)>;

    explicit Pretender(
        std::string setup, Part part = [](Pretender&) {}) {
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        server_.reset(ends[0]);
        client.reset(ends[1]);
        thread_ = std::thread([this, setup = std::move(setup), part = std::move(part)] {
            request(12);
            send(setup);
            request();
            reply(1);
            part(*this);
            ::shutdown(server_.get(), SHUT_RDWR);
        });
    }
    ~Pretender() {
        ::shutdown(server_.get(), SHUT_RDWR);
        thread_.join();
    }
    Pretender(const Pretender&) = delete;
    Pretender& operator=(const Pretender&) = delete;

    /// One request, empty when the client is gone; `size` only for the greeting.
    std::string request(size_t size = 0) {
        std::string bytes = read(size != 0 ? size : 4);
        if (size == 0 && bytes.size() == 4) {
            bytes += read((static_cast<uint8_t>(bytes[2]) + size_t{static_cast<uint8_t>(bytes[3])} * 256) * 4 - 4);
        }
        return bytes;
    }
    /// False when the client is gone.
    bool send(const std::string& bytes) {
        return ::send(server_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    /// The head of a reply that announces `length` more units of four bytes.
    bool reply(uint16_t sequence, uint32_t length = 0) {
        return send(bytesOf(xcb_generic_reply_t{1, 0, sequence, length}) + std::string(24, '\0'));
    }

    FileDescriptor client;

private:
    std::string read(size_t size) {
        std::string bytes(size, '\0');
        const auto got = size > 0 ? ::recv(server_.get(), bytes.data(), size, MSG_WAITALL) : 0;
        bytes.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
        return bytes;
    }

    FileDescriptor server_;
    std::thread thread_;
};

TEST(HostileXServer, SetupIsReadNoFurtherThanItGoes) {
    EXPECT_TRUE(Xcb::setupHolds(Claims().bytes()));
    const std::vector<std::function<void(Claims&)>> falsifications{
        [](Claims& setup) { setup.fixed.vendor_len = 65535; },
        [](Claims& setup) { setup.fixed.pixmap_formats_len = 255; },
        [](Claims& setup) { setup.fixed.maximum_request_length = 6; }, // the library would ask for more
        [](Claims& setup) { setup.format.bits_per_pixel = 0; },
        [](Claims& setup) { setup.screen.allowed_depths_len = 255; },
        [](Claims& setup) { setup.depth.visuals_len = 65535; },
        [](Claims& setup) { setup.visuals.resize(20); },
    };
    for (size_t i = 0; i < falsifications.size(); ++i) {
        Claims setup;
        falsifications[i](setup);
        EXPECT_FALSE(Xcb::setupHolds(setup.bytes())) << i;
    }
    // A server without a screen cannot be used, one that breaks off is not waited for.
    Claims screenless;
    screenless.fixed.roots_len = 0;
    Claims lying;
    falsifications[2](lying);
    for (const auto& refused :
         {screenless.bytes(), lying.bytes(), Claims().bytes().substr(0, 20), std::string(8, '\xff')}) {
        Pretender server(refused);
        EXPECT_THROW(Connector(1, nullptr, std::move(server.client)), xcb_error) << refused.size();
    }
}

// Nor does a reply to a request that has none confuse what follows.
TEST(HostileXServer, ReplyThatStopsHalfwayFailsInTimeAndMayGoOn) {
    std::promise<void> missed;
    Pretender server(Claims().bytes(), [&](Pretender& self) {
        self.request();
        self.reply(2, 1000);
        missed.get_future().wait();
        self.send(std::string(4000, '\0'));
        self.request();
        self.reply(3);
        for (uint16_t next = 4; !self.request().empty(); ++next) {
            self.reply(next);
        }
    });
    Connector xcb(1, nullptr, std::move(server.client));
    EXPECT_FALSE(xcb.answers(300ms));
    missed.set_value();
    EXPECT_TRUE(Scratch::waitUntil([&] { return xcb.answers(); }));
    EXPECT_TRUE(xcb.setWindowGeometry(1, 0, 0, 10, 10));
}

size_t residentMegabytes() {
    size_t size = 0;
    size_t resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident * static_cast<size_t>(::sysconf(_SC_PAGESIZE)) / 1024 / 1024;
}

/// The request is answered with `first`, then with 256 MiB of `more`.
void expectNothingKept(const std::string& first, const std::string& more) {
    Pretender server(Claims().bytes(), [&](Pretender& self) {
        std::string many;
        while (many.size() < 65536) {
            many += more;
        }
        self.request();
        self.send(first);
        for (int i = 0; i < 4096 && self.send(many); ++i) {
        }
        self.request(4);
    });
    Connector xcb(1, nullptr, std::move(server.client));
    const size_t before = residentMegabytes();
    EXPECT_FALSE(xcb.answers());
    EXPECT_LT(residentMegabytes(), before + 32);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(xcb.answers());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, Connector::answerLimit) << "it has said enough";
}

TEST(HostileXServer, FloodIsNotKept) {
    const auto packet = [](uint8_t type, uint16_t sequence, uint32_t length) {
        return bytesOf(xcb_generic_reply_t{type, 0, sequence, length}) + std::string(24, '\0');
    };
    expectNothingKept("", packet(XCB_MAPPING_NOTIFY, 1, 0));
    expectNothingKept("", packet(1, 1, 0)); // a reply again and again
    expectNothingKept("", packet(0, 1, 0)); // an error likewise
    expectNothingKept(packet(1, 2, 0x8000000), packet(0, 0, 0)); // half a gigabyte is announced
    expectNothingKept(packet(XCB_GE_GENERIC, 1, 0xffffffff), packet(0, 0, 0));
}

// Each answer is late but in time: 200 windows would take minutes.
TEST(HostileXServer, SlowServerDoesNotHoldAPass) {
    Pretender server(Claims().bytes(), [](Pretender& self) {
        uint16_t sequence = 1;
        for (std::string request; !(request = self.request()).empty();) {
            std::this_thread::sleep_for(100ms);
            if (request.front() != XCB_QUERY_TREE) {
                self.send(bytesOf(xcb_get_geometry_reply_t{1, 24, ++sequence, 0, 1, 0, 0, 800, 600, 0, {}}) +
                          std::string(8, '\0'));
                continue;
            }
            xcb_query_tree_reply_t tree{1, 0, ++sequence, 200, 1, 0, 200, {}};
            self.send(bytesOf(tree) + std::string(800, '\1'));
        }
    });
    Connector xcb(1, nullptr, std::move(server.client));
    ASSERT_EQ(xcb.getWindows().size(), 200U);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(fitWindows(xcb));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2 * fittingLimit);
}

} // namespace
