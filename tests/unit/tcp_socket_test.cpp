// TCP sockets, and what waits in a descriptor.
#include "tcp_socket.h"

#include "file_descriptor.h"

#include <gtest/gtest.h>

#include <cerrno>

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

TEST(Descriptors, HangUpIsNeitherInputNorSilence) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const FileDescriptor reader(ends[0]);
    ::close(ends[1]);
    errno = EINTR; // left over from something else: it must not make the test for input run for ever
    EXPECT_THROW(Utils::hasInput(reader.get(), 1000), std::runtime_error);
}

} // namespace
