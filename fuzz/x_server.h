// A fake X server: all that it will ever say is said before the client asks, so that no run waits for anything.
#pragma once

#include "exceptions.h"
#include "harness.h"
#include "xcb_connector.h"

#include <sys/socket.h>

#include <array>
#include <cstring>
#include <memory>
#include <string_view>

namespace Fuzz {

template <typename T>
std::string bytesOf(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

/// The setup of a server with one screen of one visual.
inline std::string plainSetup() {
    xcb_setup_t setup{};
    setup.status = 1;
    setup.protocol_major_version = 11;
    setup.maximum_request_length = 65535;
    setup.roots_len = setup.pixmap_formats_len = 1;
    xcb_format_t format{};
    format.depth = 24;
    format.bits_per_pixel = 32;
    xcb_screen_t screen{};
    screen.root = 1;
    screen.root_depth = 24;
    screen.allowed_depths_len = 1;
    xcb_depth_t depth{};
    depth.depth = 24;
    depth.visuals_len = 1;
    xcb_visualtype_t visual{};
    visual.visual_id = 1;
    const auto rest = bytesOf(format) + bytesOf(screen) + bytesOf(depth) + bytesOf(visual);
    setup.length = static_cast<uint16_t>((sizeof setup + rest.size() - 8) / 4);
    return bytesOf(setup) + rest;
}

/// The answer to the first request: the extension is there.
inline std::string extensionAnswer() {
    xcb_query_extension_reply_t reply{};
    reply.response_type = reply.present = 1;
    reply.sequence = 1;
    reply.major_opcode = 140;
    auto bytes = bytesOf(reply);
    bytes.resize(32); // the least that a reply has
    return bytes;
}

/// The packets that the input describes. Each of them is two bytes, what to set right in it and its length in units
/// beyond the first 32 bytes, and its bytes. Without help hardly one in a million would be the answer to a request.
inline std::string packets(std::string_view input) {
    constexpr std::array<char, 4> types{1, 1, 0, 35}; // reply, reply, error, generic event
    std::string result;
    for (uint16_t sequence = 1; input.size() >= 2;) {
        const auto kind = static_cast<uint8_t>(input[0]);
        const uint32_t units = static_cast<uint8_t>(input[1]);
        std::string packet(input.substr(2, 32 + size_t{units} * 4));
        input.remove_prefix(2 + packet.size());
        packet.resize(32 + size_t{units} * 4);
        if ((kind & 0x04U) == 0) {
            packet[0] = types.at(kind & 0x03U);
        }
        if ((kind & 0x08U) == 0) {
            sequence = static_cast<uint16_t>(sequence + 1 + (kind >> 6U));
            std::memcpy(packet.data() + 2, &sequence, sizeof sequence);
        }
        if ((kind & 0x10U) == 0) {
            std::memcpy(packet.data() + 4, &units, sizeof units);
        }
        result += packet;
    }
    return result;
}

/// The client of a server that says these bytes and hears all; null when it was refused.
inline std::unique_ptr<Vard::Xcb::Connector> clientOf(const std::string& bytes, Vard::FileDescriptor& server) {
    std::array<int, 2> ends{};
    expect(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0);
    server.reset(ends[0]);
    Vard::FileDescriptor client(ends[1]);
    ::send(server.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    ::shutdown(server.get(), SHUT_WR);
    try {
        return std::make_unique<Vard::Xcb::Connector>(1, nullptr, std::move(client));
    } catch (const Vard::xcb_error&) {
        return nullptr;
    }
}

} // namespace Fuzz
