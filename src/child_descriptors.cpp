// Which of the service's descriptors a forked child keeps.
#include "child_descriptors.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace Vard::Utils {

namespace {

std::atomic<int> journalSocket{-1};

// The journal's socket is the only one here that has neither a name nor a peer.
bool isJournalSocket(int fd) noexcept {
    int type = 0;
    socklen_t length = sizeof type;
    sockaddr_un name{};
    socklen_t nameLength = sizeof name;
    sockaddr_un peer{};
    socklen_t peerLength = sizeof peer;
    return ::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length) == 0 && type == SOCK_DGRAM &&
           ::getsockname(fd, reinterpret_cast<sockaddr*>(&name), &nameLength) == 0 && name.sun_family == AF_UNIX &&
           nameLength == sizeof name.sun_family &&
           ::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0 && errno == ENOTCONN;
}

std::vector<int> openDescriptors() noexcept {
    std::vector<int> descriptors;
    std::error_code failed;
    for (fs::directory_iterator it("/proc/self/fd", failed), end; !failed && it != end; it.increment(failed)) {
        descriptors.push_back(std::atoi(it->path().filename().c_str()));
    }
    return descriptors;
}

// One by one where the call is refused, as by a container's filter.
void closeBetween(unsigned first, unsigned last) noexcept {
    if (first > last || ::close_range(first, last, 0) == 0) {
        return;
    }
    for (const int fd : openDescriptors()) {
        if (static_cast<unsigned>(fd) >= first && static_cast<unsigned>(fd) <= last) {
            ::close(fd);
        }
    }
}

} // namespace

void rememberJournalSocket() noexcept {
    if (isJournalSocket(journalSocket)) {
        return;
    }
    int found = -1;
    for (const int fd : openDescriptors()) {
        found = isJournalSocket(fd) ? fd : found;
    }
    journalSocket = found;
}

void closeInheritedDescriptors(int keep) noexcept {
    const int journal = isJournalSocket(journalSocket) ? journalSocket.load() : -1;
    unsigned first = STDERR_FILENO + 1;
    for (const int kept : {std::min(journal, keep), std::max(journal, keep)}) {
        if (kept > STDERR_FILENO) {
            closeBetween(first, static_cast<unsigned>(kept) - 1);
            first = static_cast<unsigned>(kept) + 1;
        }
    }
    closeBetween(first, ~0U);
}

} // namespace Vard::Utils
