// Sockets, waits and probes, on real sockets.
#include "sockets.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <thread>

namespace {

using namespace Vard;
using Socket::Probe;

int bindLocal(const std::string& path, bool listening) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listening ? ::listen(fd, 4) : 0, 0);
    return fd;
}

TEST(Sockets, TcpConnectsAndTellsThePeer) {
    const FileDescriptor listener(Socket::tcpListen("127.0.0.1", 0, 5));
    ASSERT_TRUE(listener);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &length);
    const FileDescriptor client(Socket::tcpConnect("127.0.0.1", ntohs(address.sin_port)));
    std::string peer;
    const FileDescriptor accepted(Socket::tcpAccept(listener.get(), &peer));
    ASSERT_TRUE(client && accepted);
    EXPECT_EQ(peer, "127.0.0.1");
    EXPECT_FALSE(Utils::hasInput(client.get(), 0));
    ASSERT_EQ(::write(accepted.get(), "abc", 3), 3);
    EXPECT_TRUE(Utils::hasInput(client.get(), 1000));
    EXPECT_EQ(Utils::hasData(client.get()), 3);
    EXPECT_LT(Socket::tcpConnect("127.0.0.1", 1), 0);
    EXPECT_FALSE(Utils::hasInput(-1, 1000));
    EXPECT_EQ(Utils::hasData(-1), 0);
    EXPECT_THROW(Utils::hasData(12345), std::runtime_error);
}

TEST(Sockets, HangUpIsNeitherInputNorSilence) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const FileDescriptor reader(ends[0]);
    ::close(ends[1]);
    errno = EINTR; // left over from something else: it must not make the test for input run for ever
    EXPECT_THROW(Utils::hasInput(reader.get(), 1000), std::runtime_error);
}

TEST(Sockets, LongLocalPathIsCut) {
    const std::string path = "/tmp/" + std::string(102, 's');
    const FileDescriptor listener(bindLocal(path, true));
    const FileDescriptor client(Socket::unixConnect(path + "and-more"));
    EXPECT_TRUE(client);
}

TEST(Sockets, ProbeTellsTheLivingFromTheDeadAndFollowsNoLink) {
    const std::string path = "/tmp/probe";
    EXPECT_EQ(Socket::probeUnix(path), Probe::Absent);
    int fd = bindLocal(path, true);
    EXPECT_FALSE(Socket::connectOwned(path, 12345)) << "another user's server";
    EXPECT_TRUE(Socket::connectOwned(path, ::getuid()));
    for (int i = 0; i < 10; ++i) { // nobody accepts: the queue fills, and no probe waits for it
        EXPECT_EQ(Socket::probeUnix(path), Probe::Live);
    }
    ASSERT_EQ(::symlink(path.c_str(), "/tmp/link"), 0);
    EXPECT_EQ(Socket::probeUnix("/tmp/link"), Probe::NoSocket);
    EXPECT_FALSE(Utils::restrictSocket("/tmp/link", ::getuid()));
    EXPECT_FALSE(Socket::connectOwned("/tmp/link", ::getuid()));
    ::chmod(path.c_str(), 0777);
    EXPECT_FALSE(Utils::restrictSocket(path, 12345)) << "another user's socket";
    EXPECT_TRUE(Utils::restrictSocket(path, ::getuid()));
    struct stat info {};
    ::stat(path.c_str(), &info);
    EXPECT_EQ(info.st_mode & 0777, 0700U);
    ::close(fd);
    EXPECT_EQ(Socket::probeUnix(path), Probe::Dead);
    EXPECT_EQ(Socket::probeUnix("/tmp"), Probe::NoSocket);
}

TEST(Sockets, AbstractNamesAreProbedApartFromFiles) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = "/tmp/abstract-probe";
    name.copy(address.sun_path + 1, name.size());
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    EXPECT_EQ(Socket::probeUnix(name, true), Probe::Absent);
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(::listen(socket.get(), 1), 0);
    EXPECT_EQ(Socket::probeUnix(name, true), Probe::Live);
    EXPECT_EQ(Socket::probeUnix(name), Probe::Absent);
}

TEST(Sockets, WaitEndsWhenTheSocketAppears) {
    EXPECT_FALSE(Utils::waitSocketSec("/tmp/late", 0));
    std::jthread later([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        bindLocal("/tmp/late", false);
    });
    EXPECT_TRUE(Utils::waitSocketSec("/tmp/late", 30));
}

} // namespace
