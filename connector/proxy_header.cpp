// What a balancer says of the client that it hands on.
#include "proxy_header.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace Doors {

namespace {

using namespace std::string_view_literals;

constexpr auto signature = "\r\n\r\n\0\r\nQUIT\n"sv;
constexpr char versionAndProxy = 0x21;
constexpr char versionAndLocal = 0x20;
constexpr char tcpOverFour = 0x11;
constexpr char tcpOverSix = 0x21;

template <typename Bytes>
std::optional<Address> addressIn(const std::string& header) {
    Bytes bytes{};
    if (header.size() < proxyHeaderBegin + 2 * bytes.size() + 2 * sizeof(uint16_t)) { // both ends', and their ports
        return std::nullopt;
    }
    std::copy_n(header.begin() + proxyHeaderBegin, bytes.size(), bytes.begin());
    if constexpr (sizeof bytes == sizeof(asio::ip::address_v4::bytes_type)) {
        return asio::ip::address_v4(bytes);
    } else {
        return asio::ip::address_v6(bytes);
    }
}

} // namespace

std::optional<size_t> proxyHeaderLength(const std::string& begin) {
    if (begin.size() < proxyHeaderBegin || !begin.starts_with(signature) ||
        (begin[12] != versionAndProxy && begin[12] != versionAndLocal)) {
        return std::nullopt;
    }
    const size_t rest = static_cast<unsigned char>(begin[14]) * 256U + static_cast<unsigned char>(begin[15]);
    return proxyHeaderBegin + rest <= longestProxyHeader ? std::optional(proxyHeaderBegin + rest) : std::nullopt;
}

std::optional<Address> proxiedAddress(const std::string& header, const Address& own) {
    if (header[12] == versionAndLocal) {
        return own;
    }
    if (header[13] == tcpOverFour) {
        return addressIn<asio::ip::address_v4::bytes_type>(header);
    }
    return header[13] == tcpOverSix ? addressIn<asio::ip::address_v6::bytes_type>(header) : std::nullopt;
}

} // namespace Doors
