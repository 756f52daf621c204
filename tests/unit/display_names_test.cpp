// The abstract names of displays: held by one, kept over a restart, their owner known.
#include "display_names.h"

#include "scratch.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstring>

namespace {

using KeptNames = Scratch::Machine;
using Vard::DisplayNames;

/// What the service manager gets of a service: a text, and a descriptor, which is put where a started service finds its
/// first.
std::string keep(int socket) {
    std::array<char, 256> text{};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    iovec part{text.data(), text.size() - 1};
    msghdr message{nullptr, 0, &part, 1, control.data(), control.size(), 0};
    EXPECT_GT(::recvmsg(socket, &message, 0), 0);
    int fd = -1;
    std::memcpy(&fd, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof fd);
    ::dup2(fd, 3);
    ::close(fd);
    return text.data();
}

TEST_F(KeptNames, AreKeptOverARestartAndTheirOwnerIsKnown) {
    ::dup2(STDIN_FILENO, 3); // so that nothing else takes the first descriptor of a started service
    EXPECT_TRUE(DisplayNames::isFree(7033));
    EXPECT_FALSE(Vard::displayNameOwners().contains(7033));
    {
        const sockaddr_un address{AF_UNIX, "/tmp/manager"};
        const Vard::FileDescriptor manager(::socket(AF_UNIX, SOCK_DGRAM, 0));
        ASSERT_EQ(::bind(manager.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ::setenv("NOTIFY_SOCKET", address.sun_path, 1);
        DisplayNames before;
        ASSERT_TRUE(before.hold(7033));
        EXPECT_FALSE(DisplayNames().hold(7033)) << "one holder";
        EXPECT_EQ(Vard::displayNameOwners()[7033], ::getuid());
        EXPECT_EQ(keep(manager.get()), "FDSTORE=1\nFDPOLL=0\nFDNAME=display7033");
    }
    EXPECT_FALSE(DisplayNames::isFree(7033)) << "the manager has it";
    ::setenv("LISTEN_FDS", "1", 1);
    ::setenv("LISTEN_FDNAMES", "display7033", 1);
    ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
    DisplayNames after;
    after.restore();
    EXPECT_TRUE(after.hold(7033));
    after.letGoAll();
    EXPECT_TRUE(DisplayNames::isFree(7033));
}

} // namespace
