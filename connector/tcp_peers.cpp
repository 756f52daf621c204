// Ports and the peers on them.
#include "tcp_peers.h"

#include "file_descriptor.h"
#include "transport_log.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

namespace Doors {

namespace {

constexpr unsigned stateListen = 0x0A;

template <typename Number>
bool fromHex(const std::string& text, Number& number) {
    const auto [rest, failed] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
    return failed == std::errc{} && rest == text.data() + text.size();
}

// The kernel prints an address as 32-bit words in the machine's order, eight digits each.
std::string addressText(const std::string& digits) {
    std::array<uint32_t, 4> words{};
    if (digits.size() != 8 && digits.size() != 32) {
        return {};
    }
    for (size_t i = 0; i < digits.size() / 8; ++i) {
        if (!fromHex(digits.substr(i * 8, 8), words[i])) {
            return {};
        }
    }
    std::array<char, INET6_ADDRSTRLEN> text{};
    const int family = digits.size() == 8 ? AF_INET : AF_INET6;
    return ::inet_ntop(family, words.data(), text.data(), text.size()) != nullptr ? plainAddress(text.data()) : "";
}

// A line: "NUMBER: LOCAL:PORT REMOTE:PORT STATE ...".
std::string peerOf(const std::string& line, uint16_t port) {
    std::istringstream fields(line);
    std::string number;
    std::string local;
    std::string remote;
    std::string state;
    fields >> number >> local >> remote >> state;
    const size_t colon = local.rfind(':');
    uint16_t localPort = 0;
    unsigned stateNumber = 0;
    if (colon == std::string::npos || !fromHex(local.substr(colon + 1), localPort) || localPort != port ||
        !fromHex(state, stateNumber) || stateNumber == stateListen) {
        return {};
    }
    return addressText(remote.substr(0, remote.rfind(':')));
}

bool canBind(const addrinfo& place) {
    const Vard::FileDescriptor socket(::socket(place.ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket) {
        return errno == EAFNOSUPPORT; // no such protocol here: nothing to listen on
    }
    const int on = 1;
    ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on); // closed connections linger
    if (place.ai_family == AF_INET6) {
        ::setsockopt(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    }
    return ::bind(socket.get(), place.ai_addr, place.ai_addrlen) == 0;
}

} // namespace

std::set<std::string> tcpPeers(std::istream& table, uint16_t port) {
    std::set<std::string> peers;
    for (std::string line; std::getline(table, line);) {
        if (auto peer = peerOf(line, port); !peer.empty()) {
            peers.insert(std::move(peer));
        }
    }
    return peers;
}

std::set<std::string> tcpPeers(uint16_t port) {
    std::ifstream four("/proc/net/tcp");
    std::ifstream six("/proc/net/tcp6");
    auto peers = tcpPeers(four, port);
    peers.merge(tcpPeers(six, port));
    return peers;
}

bool portIsFree(const std::string& address, uint16_t port) {
    addrinfo hints{};
    hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const char* host = address.empty() ? nullptr : address.c_str();
    if (::getaddrinfo(host, std::to_string(port).c_str(), &hints, &found) != 0) {
        return false;
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
    for (; found != nullptr; found = found->ai_next) {
        if (!canBind(*found)) {
            return false;
        }
    }
    return true;
}

} // namespace Doors
