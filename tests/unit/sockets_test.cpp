// Sockets and probes, on real sockets.
#include "sockets.h"

#include "scratch.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>

namespace {

using namespace Vard;
using Socket::Probe;

class Sockets : public testing::Test {
protected:
    static FileDescriptor listenAt(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM, 0));
        EXPECT_EQ(::bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(fd.get(), 4), 0);
        return fd;
    }

    Scratch::Directory dir_;
    const std::string path_ = dir_.path() / "socket";
};

TEST_F(Sockets, TcpConnectsAndTellsThePeer) {
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

TEST_F(Sockets, HangUpIsNeitherInputNorSilence) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const FileDescriptor reader(ends[0]);
    ::close(ends[1]);
    errno = EINTR; // left over from something else: it must not make the test for input run for ever
    EXPECT_THROW(Utils::hasInput(reader.get(), 1000), std::runtime_error);
}

TEST_F(Sockets, LongLocalPathIsCut) {
    const std::string path = path_ + std::string(107 - path_.size(), 's');
    const FileDescriptor listener = listenAt(path);
    EXPECT_TRUE(FileDescriptor(Socket::unixConnect(path + "and-more")));
}

TEST_F(Sockets, ProbeTellsTheLivingFromTheDeadAndWaitsForNeither) {
    EXPECT_EQ(Socket::probeUnix(path_), Probe::Absent);
    FileDescriptor listener = listenAt(path_);
    for (int i = 0; i < 10; ++i) { // nobody accepts: the queue fills
        EXPECT_EQ(Socket::probeUnix(path_), Probe::Live);
    }
    listener.reset();
    EXPECT_EQ(Socket::probeUnix(path_), Probe::Dead);
    EXPECT_EQ(Socket::probeUnix(dir_.path()), Probe::NoSocket);
}

TEST_F(Sockets, LinksAndStrangersSocketsAreLeftAlone) {
    const FileDescriptor listener = listenAt(path_);
    const std::string link = dir_.path() / "link";
    std::filesystem::create_symlink(path_, link);
    EXPECT_EQ(Socket::probeUnix(link), Probe::NoSocket);
    EXPECT_FALSE(Socket::connectOwned(link, ::getuid()));
    EXPECT_FALSE(Socket::connectOwned(path_, 12345)) << "another user's server";
    EXPECT_TRUE(Socket::connectOwned(path_, ::getuid()));
    ::chmod(path_.c_str(), 0777);
    EXPECT_FALSE(Utils::restrictSocket(link, ::getuid()));
    EXPECT_FALSE(Utils::restrictSocket(path_, 12345)) << "another user's socket";
    EXPECT_EQ(Scratch::run("stat -c %a " + path_), "777\n");
    EXPECT_TRUE(Utils::restrictSocket(path_, ::getuid()));
    EXPECT_EQ(Scratch::run("stat -c %a " + path_), "700\n");
}

} // namespace
