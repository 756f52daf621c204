// The abstract names of displays: held by one, kept over a restart, their owner known.
#include "display_names.h"

#include "scratch.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace {

using Vard::DisplayNames;

/// What the service manager gets of a service: one datagram with one descriptor.
class Manager {
public:
    Manager() {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, (dir_.path() / "notify").c_str());
        if (::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error("bind");
        }
        ::setenv("NOTIFY_SOCKET", address.sun_path, 1);
    }
    ~Manager() { ::close(socket_); }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    /// The text; the descriptor is put where a started service finds its first.
    std::string keep() const {
        std::array<char, 256> text{};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
        iovec part{text.data(), text.size() - 1};
        msghdr message{nullptr, 0, &part, 1, control.data(), control.size(), 0};
        const auto size = ::recvmsg(socket_, &message, 0);
        int fd = -1;
        std::memcpy(&fd, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof fd);
        ::dup2(fd, 3);
        ::close(fd);
        return {text.data(), static_cast<size_t>(std::max<ssize_t>(size, 0))};
    }

private:
    Scratch::Directory dir_;
    int socket_ = ::socket(AF_UNIX, SOCK_DGRAM, 0);
};

TEST(DisplayNames, AreKeptOverARestartAndTheirOwnerIsKnown) {
    ::dup2(STDIN_FILENO, 3); // so that nothing else takes the first descriptor of a started service
    EXPECT_TRUE(DisplayNames::isFree(7033));
    EXPECT_FALSE(Vard::displayNameOwners().contains(7033));
    {
        const Manager manager;
        DisplayNames before;
        ASSERT_TRUE(before.hold(7033));
        EXPECT_FALSE(DisplayNames().hold(7033)) << "one holder";
        EXPECT_EQ(Vard::displayNameOwners()[7033], ::getuid());
        EXPECT_EQ(manager.keep(), "FDSTORE=1\nFDPOLL=0\nFDNAME=display7033");
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
