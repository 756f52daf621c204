// Users and groups of the system databases.
#include "user_database.h"

#include "fork_guard.h"
#include "logger.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace Vard {

namespace {

constexpr size_t firstBuffer = 4096;
constexpr size_t largestBuffer = 16 << 20;
constexpr size_t longestName = 255;

bool plausible(const std::string& name) {
    using namespace std::string_view_literals;
    return !name.empty() && name.size() <= longestName && name.find_first_of("/:\n\0"sv) == std::string::npos;
}

/// Calls a reentrant look-up with a buffer that grows until the entry fits. Answers the error code, 0 for success or
/// for an unknown name.
template <typename Entry, typename Call>
int lookUp(Entry& entry, Entry*& found, std::vector<char>& buffer, Call call) {
    const ForkGuard guard; // the name service holds locks of its own
    buffer.resize(firstBuffer);
    int code = call(&entry, buffer.data(), buffer.size(), &found);
    while (code == ERANGE && buffer.size() < largestBuffer) {
        buffer.resize(buffer.size() * 4);
        code = call(&entry, buffer.data(), buffer.size(), &found);
    }
    return code;
}

std::string text(const char* value) { return value != nullptr ? value : ""; }

/// One group entry with the memory that it points into.
struct GroupEntry {
    group entry{};
    group* found = nullptr;
    std::vector<char> buffer;

    GroupEntry(const std::string& name, const char* func) {
        const int code = plausible(name) ? lookUp(entry, found, buffer,
                                                  [&](group* out, char* data, size_t size, group** result) {
                                                      return ::getgrnam_r(name.c_str(), out, data, size, result);
                                                  })
                                         : 0;
        if (found == nullptr) {
            Utils::syslogErrno(func, "getgrnam", code);
        }
    }
};

/// The ids that setOwner was asked for; none when a name is unknown.
struct Owner {
    uid_t uid = unknownUid;
    gid_t gid = unknownGid;
    bool known = true;

    Owner(const std::string& user, const std::string& group) {
        if (!user.empty()) {
            const UserInfo info = Utils::getUserInfo(user);
            uid = info.uid;
            gid = info.gid; // the user's own, unless another is named
            known = info.known();
        }
        if (!group.empty()) {
            gid = Utils::getGroupGid(group);
            known = known && gid != unknownGid;
        }
    }
};

} // namespace

namespace Utils {

UserInfo getUserInfo(const std::string& user) {
    UserInfo result;
    result.user = user;
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer;
    const int code = plausible(user) ? lookUp(entry, found, buffer,
                                              [&](passwd* out, char* data, size_t size, passwd** answer) {
                                                  return ::getpwnam_r(user.c_str(), out, data, size, answer);
                                              })
                                     : 0;
    if (found == nullptr) {
        syslogErrno("getUserInfo", "getpwnam", code);
        return result;
    }
    result.uid = entry.pw_uid;
    result.gid = entry.pw_gid;
    result.gecos = text(entry.pw_gecos);
    result.home = text(entry.pw_dir);
    result.shell = text(entry.pw_shell);
    return result;
}

uid_t getUserUid(const std::string& user) { return getUserInfo(user).uid; }

gid_t getUserGid(const std::string& user) { return getUserInfo(user).gid; }

std::filesystem::path getUserHome(const std::string& user) { return getUserInfo(user).home; }

gid_t getGroupGid(const std::string& group) {
    const GroupEntry found(group, "getGroupGid");
    return found.found != nullptr ? found.entry.gr_gid : unknownGid;
}

std::vector<std::string> getGroupMembers(const std::string& group) {
    std::vector<std::string> members;
    const GroupEntry found(group, "getGroupMembers");
    for (char** member = found.found != nullptr ? found.entry.gr_mem : nullptr; member != nullptr && *member != nullptr;
         ++member) {
        members.emplace_back(*member);
    }
    return members;
}

std::vector<gid_t> getUserGroups(const std::string& user, gid_t primary) {
    const ForkGuard guard;
    int count = 0;
    ::getgrouplist(user.c_str(), primary, nullptr, &count);
    std::vector<gid_t> groups(static_cast<size_t>(std::max(count, 0)));
    // The database may have grown since the count was asked for.
    while (::getgrouplist(user.c_str(), primary, groups.data(), &count) < 0 &&
           groups.size() < static_cast<size_t>(count)) {
        groups.resize(static_cast<size_t>(count));
    }
    groups.resize(std::min(groups.size(), static_cast<size_t>(std::max(count, 0))));
    return groups;
}

bool setOwner(const std::filesystem::path& path, const std::string& user, const std::string& group) {
    const Owner owner(user, group);
    if (!owner.known) {
        return false;
    }
    if (::lchown(path.c_str(), owner.uid, owner.gid) != 0) {
        syslogErrno("setOwner", "lchown", errno);
        return false;
    }
    return true;
}

bool setOwner(int fd, const std::string& user, const std::string& group) {
    const Owner owner(user, group);
    if (!owner.known) {
        return false;
    }
    if (::fchown(fd, owner.uid, owner.gid) != 0) {
        syslogErrno("setOwner", "fchown", errno);
        return false;
    }
    return true;
}

} // namespace Utils
} // namespace Vard
