// Users' profile partitions.
#pragma once

#include <functional>
#include <list>
#include <string>

namespace Vard {

/// One partition of the machine.
struct PVOL {
    std::string devname;
    std::string type; ///< GPT entry type, lower-case GUID text; empty when unknown
    std::string label; ///< partition label; empty when none

    /// All named block devices, in libblkid's order; empty after an error line when they cannot be probed.
    static std::list<PVOL> getPartitions();
};

/// The GPT entry type of profile partitions.
inline constexpr const char* profilePartitionType = "773f91ef-66d4-49b5-bd83-d683bf40ad16";

/// The first partition of the profile type labelled exactly `username`, or null. Pure.
const PVOL* findProfileVolume(const std::list<PVOL>& partitions, const std::string& username);

/// Mounts the user's profile partition on `home` if there is one. True when it was mounted, or is there already for
/// another session of the user's; a failed mount is logged under "sessionMountProfile", a missing partition is not. No
/// link is followed but root's own (see walkTo). Any thread.
bool mountProfile(const std::string& username, const std::string& home, const std::string& fstype,
                  const std::string& option);

/// Undoes one mountProfile that answered true. Unmounts it from where it was mounted when no other session
/// uses it, without following a link: up to five attempts, each after a sleep of 350 ms. When all fail, and `inUse` can
/// tell that the session's own processes were in the way, five more once it says no, or after 11 s. What is still held
/// then stays mounted. Blocks; logs nothing.
void unmountProfile(const std::string& home, const std::function<bool()>& inUse = {});

} // namespace Vard
