// The X client against programs that only pretend to be an X server.
#include "xcb_connector.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <xcb/xproto.h>

#include <functional>
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
        fixed.length = static_cast<uint16_t>((sizeof fixed + vendor.size() + rest.size() - 8) / 4);
        return bytesOf(fixed) + vendor + rest;
    }

    xcb_setup_t fixed{};
    std::string vendor;
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
        std::string setup, Part part = [](Pretender& self) { self.request(4); }) {
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
        const auto got = ::recv(server_.get(), bytes.data(), size, MSG_WAITALL);
        bytes.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
        return bytes;
    }

    FileDescriptor server_;
    std::thread thread_;
};

bool connects(Claims setup) {
    Pretender server(setup.bytes());
    try {
        const Connector xcb(1, nullptr, std::move(server.client));
        return xcb.findVisual(1) == nullptr;
    } catch (const xcb_error&) {
        return false;
    }
}

TEST(HostileXServer, SetupIsReadNoFurtherThanItGoes) {
    EXPECT_TRUE(connects({}));
    const auto refuses = [](const std::function<void(Claims&)>& falsify) {
        Claims setup;
        falsify(setup);
        return !connects(setup);
    };
    EXPECT_TRUE(refuses([](Claims& setup) { setup.fixed.vendor_len = 65535; }));
    EXPECT_TRUE(refuses([](Claims& setup) { setup.fixed.pixmap_formats_len = 255; }));
    EXPECT_TRUE(refuses([](Claims& setup) { setup.fixed.roots_len = 0; }));
    EXPECT_TRUE(refuses([](Claims& setup) { setup.fixed.maximum_request_length = 6; }))
        << "the library would ask for more";
    EXPECT_TRUE(refuses([](Claims& setup) { setup.format.bits_per_pixel = 0; }));
    EXPECT_TRUE(refuses([](Claims& setup) { setup.screen.allowed_depths_len = 255; }));
    EXPECT_TRUE(refuses([](Claims& setup) { setup.depth.visuals_len = 65535; }));
    EXPECT_TRUE(refuses([](Claims& setup) { setup.visuals.resize(20); }));
}

} // namespace
