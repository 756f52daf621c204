// What a child needs to become a user.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <vector>

namespace Vard {

/// What a child needs to become a user, all looked up before the fork.
struct Identity {
    std::string user;
    std::string home;
    std::string shell;
    uid_t uid = static_cast<uid_t>(-1);
    gid_t gid = static_cast<gid_t>(-1);
    std::vector<gid_t> groups; ///< empty for root
    std::optional<uint32_t> integrity; ///< mandatory integrity level, where the platform has one

    /// The identity of a user; logs and throws vard_error when the name is empty or unknown.
    static Identity of(const std::string& user);
    /// USER, LOGNAME, HOME, SHELL, TERM and a default PATH, as NAME=value.
    [[nodiscard]] std::list<std::string> environment() const;
};

} // namespace Vard
