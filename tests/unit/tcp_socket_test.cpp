// TCP sockets, and what waits in one.
#include "tcp_socket.h"

#include "file_descriptor.h"

#include <gtest/gtest.h>

namespace {

using namespace Vard;

TEST(TcpSockets, ConnectAndTellThePeer) {
    const FileDescriptor listener(Socket::tcpListen("127.0.0.1", 3999, 5));
    const FileDescriptor client(Socket::tcpConnect("127.0.0.1", 3999));
    std::string peer;
    const FileDescriptor accepted(Socket::tcpAccept(listener.get(), &peer));
    EXPECT_EQ(peer, "127.0.0.1");
    EXPECT_FALSE(Utils::hasInput(client.get(), 0));
    ASSERT_EQ(::write(accepted.get(), "abc", 3), 3);
    EXPECT_TRUE(Utils::hasInput(client.get(), 30000));
    EXPECT_EQ(Utils::hasData(client.get()), 3);
}

} // namespace
