// A stand-in for the transport program: no screen, but bytes.
#include "stand_in.h"

#include "file_descriptor.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>

namespace StandIn {

namespace {

using Vard::FileDescriptor;

constexpr std::string_view socketOption = "/ipc-socket:";
constexpr std::string_view portOption = "/port:";

// The connector goes by these lines, see its transport_log.h.
void say(const char* tag, const std::string& text) {
    std::printf("<INFO> %d com.freerdp.%s %s\n", ::gettid(), tag, text.c_str());
    std::fflush(stdout);
}

FileDescriptor listenOn(std::string_view option) {
    sockaddr_un local{.sun_family = AF_UNIX, .sun_path = {}};
    sockaddr_in net{};
    net.sin_family = AF_INET;
    net.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool isPath = option.starts_with(socketOption);
    if (isPath) {
        option.substr(socketOption.size()).copy(std::begin(local.sun_path), sizeof local.sun_path - 1);
    } else {
        net.sin_port = htons(static_cast<uint16_t>(std::stoi(std::string(option.substr(portOption.size())))));
    }
    FileDescriptor listener(::socket(isPath ? AF_UNIX : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const auto* address = isPath ? reinterpret_cast<sockaddr*>(&local) : reinterpret_cast<sockaddr*>(&net);
    if (::bind(listener.get(), address, isPath ? sizeof local : sizeof net) != 0 ||
        ::listen(listener.get(), SOMAXCONN) != 0) {
        std::perror("listen");
        ::_exit(1);
    }
    return listener;
}

bool sendAll(int socket, const char* bytes, size_t count) {
    while (count > 0) {
        const ssize_t sent = ::send(socket, bytes, count, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        bytes += sent;
        count -= static_cast<size_t>(sent);
    }
    return true;
}

void serve(const FileDescriptor& client) {
    std::array<char, size_t{64} * 1024> block{};
    if (::recv(client.get(), block.data(), block.size(), 0) <= 0) {
        return;
    }
    constexpr std::array<char, 19> accepted{3, 0, 0, 19, 14, char(0xD0), 0, 0, 1, 0, 0, 2, 0, 8, 0, 2, 0, 0, 0};
    say("core.connection", "Negotiated Security: NLA:1 TLS:0 RDP:0");
    sendAll(client.get(), accepted.data(), accepted.size());
    char order = 0;
    if (::recv(client.get(), &order, 1, 0) != 1) {
        return;
    }
    say("client.shadow", "Client from  is activated (stand-in)");
    if (order == Flow) {
        while (sendAll(client.get(), block.data(), block.size())) {
        }
    }
    ssize_t count = 0;
    while ((count = ::recv(client.get(), block.data(), block.size(), 0)) > 0 &&
           sendAll(client.get(), block.data(), static_cast<size_t>(count))) {
    }
}

} // namespace

bool wanted(int argc, char** argv) {
    return argc > 1 &&
           (std::string_view(argv[1]).starts_with(socketOption) || std::string_view(argv[1]).starts_with(portOption));
}

int run(char** argv) {
    const auto listener = listenOn(argv[1]);
    say("core.listener", std::string("Listening on ") + argv[1]);
    for (;;) {
        FileDescriptor client(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        const int on = 1;
        ::setsockopt(client.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        std::thread([client = std::move(client)] { serve(client); }).detach();
    }
}

} // namespace StandIn
