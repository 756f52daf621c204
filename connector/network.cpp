// Addresses and networks as an administrator writes them.
#include "network.h"

#include <algorithm>
#include <charconv>

namespace Doors {

using asio::ip::address_v4;
using asio::ip::address_v6;

namespace {

template <typename Number>
bool readNumber(const std::string& text, Number& number) {
    const auto [rest, failed] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failed == std::errc{} && rest == text.data() + text.size();
}

address_v6 inSixClothes(const Address& address) {
    return address.is_v6() ? address.to_v6() : asio::ip::make_address_v6(asio::ip::v4_mapped, address.to_v4());
}

bool haveSix() {
    asio::io_context loop;
    Tcp::socket socket(loop);
    Failed failed;
    socket.open(Tcp::v6(), failed);
    return !failed;
}

} // namespace

Address plainAddress(const Address& address) {
    if (address.is_v4()) {
        return address;
    }
    const auto six = address.to_v6();
    return six.is_v4_mapped() ? Address(asio::ip::make_address_v4(asio::ip::v4_mapped, six))
                              : address_v6(six.to_bytes());
}

Address neighbour(const Address& address) {
    const auto plain = plainAddress(address);
    if (plain.is_loopback()) {
        return address_v4::loopback();
    }
    if (plain.is_v4()) {
        return plain;
    }
    auto bytes = plain.to_v6().to_bytes();
    std::fill(bytes.begin() + 7, bytes.end(), static_cast<unsigned char>(0));
    return address_v6(bytes);
}

std::optional<Network> Network::parse(const std::string& text) {
    const auto slash = text.find('/');
    Failed failed;
    const auto address = asio::ip::make_address(text.substr(0, slash), failed);
    const unsigned most = address.is_v4() ? 32 : 128;
    unsigned bits = most;
    if (failed || (slash != std::string::npos && (!readNumber(text.substr(slash + 1), bits) || bits > most))) {
        return std::nullopt;
    }
    Network network;
    network.begin_ = inSixClothes(address).to_bytes();
    network.bits_ = bits + (128 - most);
    return network;
}

bool Network::contains(const Address& address) const {
    const auto bytes = inSixClothes(address).to_bytes();
    const size_t whole = bits_ / 8;
    const auto rest = static_cast<unsigned char>(0xFF00U >> (bits_ % 8));
    return std::equal(bytes.begin(), bytes.begin() + whole, begin_.begin()) &&
           (bits_ % 8 == 0 || ((bytes[whole] ^ begin_[whole]) & rest) == 0);
}

std::optional<Tcp::endpoint> parseEndpoint(const std::string& text) {
    const auto colon = text.rfind(':');
    uint16_t port = 0;
    if (colon == std::string::npos || !readNumber(text.substr(colon + 1), port) || port == 0) {
        return std::nullopt;
    }
    auto host = text.substr(0, colon);
    if (host.empty()) {
        return Tcp::endpoint(haveSix() ? Tcp::v6() : Tcp::v4(), port);
    }
    const bool bracketed = host.front() == '[' && host.back() == ']';
    if (bracketed) {
        host = host.substr(1, host.size() - 2);
    }
    Failed failed;
    const auto address = asio::ip::make_address(host, failed);
    return failed || address.is_v6() != bracketed ? std::nullopt : std::optional(Tcp::endpoint(address, port));
}

} // namespace Doors
