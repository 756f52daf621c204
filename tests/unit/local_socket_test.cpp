// Local sockets and probes of them.
#include "local_socket.h"

#include "scratch.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace {

using namespace Vard;
using Socket::Probe;

class LocalSockets : public testing::Test {
protected:
    FileDescriptor listen() const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, sizeof address.sun_path - 1);
        FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM, 0));
        EXPECT_EQ(::bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(fd.get(), 4), 0);
        return fd;
    }

    Scratch::Directory dir_;
    const std::string path_ = dir_.path() / "socket";
};

TEST_F(LocalSockets, ProbeTellsTheLivingFromTheDeadAndWaitsForNeither) {
    EXPECT_EQ(Socket::probeUnix(path_), Probe::Absent);
    FileDescriptor listener = listen();
    for (int i = 0; i < 10; ++i) { // nobody accepts: the queue fills
        EXPECT_EQ(Socket::probeUnix(path_), Probe::Live);
    }
    listener.reset();
    EXPECT_EQ(Socket::probeUnix(path_), Probe::Dead);
}

TEST_F(LocalSockets, LinksAndStrangersSocketsAreLeftAlone) {
    const FileDescriptor listener = listen();
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
