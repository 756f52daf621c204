// The abstract socket names of X displays.
#include "display_names.h"

#include "deadline.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Vard {

namespace {

constexpr std::chrono::milliseconds listLimit{200};
constexpr std::chrono::milliseconds managerLimit{500};
constexpr std::string_view keptName = "display"; // with its number, the name under which the manager keeps one

std::string nameOf(uint32_t display) {
    using namespace std::string_literals;
    return "\0/tmp/.X11-unix/X"s + std::to_string(display);
}

std::optional<uint32_t> displayOf(std::string_view name) {
    const std::string first = nameOf(0).substr(0, nameOf(0).size() - 1);
    uint32_t display = 0;
    if (!name.starts_with(first)) {
        return std::nullopt;
    }
    name.remove_prefix(first.size());
    const auto [end, failed] = std::from_chars(name.data(), name.data() + name.size(), display);
    const bool whole = failed == std::errc{} && end == name.data() + name.size();
    return whole && !name.starts_with("0") ? std::optional(display) : std::nullopt;
}

FileDescriptor bindName(uint32_t display) {
    const std::string name = nameOf(display);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    if (socket && ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0) {
        socket.reset();
    }
    return socket;
}

/// The kernel's list of local sockets, with their names and owners.
class SocketList {
public:
    SocketList() : kernel_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG)) {
        struct {
            nlmsghdr header;
            unix_diag_req body;
        } request{};
        request.header = {sizeof request, SOCK_DIAG_BY_FAMILY, NLM_F_REQUEST | NLM_F_DUMP, 1, 0};
        request.body.sdiag_family = AF_UNIX;
        request.body.udiag_states = ~0U;
        request.body.udiag_show = UDIAG_SHOW_NAME | UDIAG_SHOW_UID;
        const timeval limit{0, 200'000};
        ::setsockopt(kernel_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        if (kernel_ && ::send(kernel_.get(), &request, sizeof request, 0) < 0) {
            kernel_.reset();
        }
    }

    /// The owners of the displays' names, as far as the kernel tells them in a fifth of a second.
    std::map<uint32_t, uid_t> owners() {
        std::map<uint32_t, uid_t> result;
        const auto end = Deadline::in(listLimit);
        alignas(nlmsghdr) std::array<char, 32768> block;
        while (kernel_ && !end.passed()) {
            const auto got = ::recv(kernel_.get(), block.data(), block.size(), 0);
            auto left = static_cast<unsigned>(got > 0 ? got : 0);
            for (auto* message = reinterpret_cast<nlmsghdr*>(block.data()); NLMSG_OK(message, left);
                 message = NLMSG_NEXT(message, left)) {
                if (message->nlmsg_type != SOCK_DIAG_BY_FAMILY) {
                    return result; // the end of the list, or an error
                }
                addOwner(message, result);
            }
            if (got <= 0) {
                break;
            }
        }
        return result;
    }

private:
    static void addOwner(nlmsghdr* message, std::map<uint32_t, uid_t>& owners) {
        std::optional<uid_t> uid;
        std::string_view name;
        auto left = static_cast<unsigned>(NLMSG_PAYLOAD(message, sizeof(unix_diag_msg)));
        auto* part = reinterpret_cast<rtattr*>(static_cast<char*>(NLMSG_DATA(message)) + sizeof(unix_diag_msg));
        for (; RTA_OK(part, left); part = RTA_NEXT(part, left)) {
            const auto* value = static_cast<const char*>(RTA_DATA(part));
            if (part->rta_type == UNIX_DIAG_NAME) {
                name = {value, RTA_PAYLOAD(part)};
            } else if (part->rta_type == UNIX_DIAG_UID) {
                std::memcpy(&uid.emplace(), value, sizeof(uid_t));
            }
        }
        const auto display = displayOf(name);
        if (uid && display) {
            owners.emplace(*display, *uid);
        }
    }

    FileDescriptor kernel_;
};

} // namespace

void DisplayNames::restore() {
    char** names = nullptr;
    const int count = ::sd_listen_fds_with_names(1, &names);
    for (int i = 0; i < count; ++i) {
        FileDescriptor kept(SD_LISTEN_FDS_START + i);
        const std::string name = names[i];
        if (name.starts_with(keptName)) {
            held_[static_cast<uint32_t>(std::strtoul(name.c_str() + keptName.size(), nullptr, 10))] = std::move(kept);
        }
        std::free(names[i]);
    }
    std::free(names);
}

// Without a service manager, or when it keeps no more, the name is held all the same.
bool DisplayNames::hold(uint32_t display) {
    if (held_.contains(display)) {
        return true;
    }
    FileDescriptor name = bindName(display);
    if (!name) {
        return false;
    }
    const int fd = name.get();
    // A bound socket that is not connected always polls as hung up, which otherwise ends its keeping.
    const std::string keep = "FDSTORE=1\nFDPOLL=0\nFDNAME=" + std::string(keptName) + std::to_string(display);
    ::sd_pid_notify_with_fds(0, 0, keep.c_str(), &fd, 1);
    held_[display] = std::move(name);
    return true;
}

void DisplayNames::letGoAll() {
    if (held_.empty()) {
        return;
    }
    for (const auto& [display, name] : held_) {
        ::sd_notify(0, ("FDSTOREREMOVE=1\nFDNAME=" + std::string(keptName) + std::to_string(display)).c_str());
    }
    held_.clear();
    // Until then it has its copies.
    ::sd_notify_barrier(0, static_cast<uint64_t>(std::chrono::microseconds(managerLimit).count()));
}

bool DisplayNames::isFree(uint32_t display) { return static_cast<bool>(bindName(display)); }

std::map<uint32_t, uid_t> displayNameOwners() { return SocketList().owners(); }

} // namespace Vard
