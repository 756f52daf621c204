// Users' profile partitions.
#pragma once

#include "background_tasks.h"
#include "process_handle.h"

#include <sys/types.h>

#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

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

/// One session's use of its user's profile partition, which is unmounted from the home with the last such object.
/// Moves; one thread at a time.
class ProfileMount {
public:
    /// No profile.
    ProfileMount() = default;
    ProfileMount(ProfileMount&& other) noexcept = default;
    ProfileMount& operator=(ProfileMount&& other) noexcept;
    ProfileMount(const ProfileMount&) = delete;
    ProfileMount& operator=(const ProfileMount&) = delete;
    ~ProfileMount();

    /// True while a profile is used.
    explicit operator bool() const { return home_ != nullptr; }
    /// Ends the use in a background task. When no other session uses the profile, it is unmounted from where it was
    /// mounted, without following a link: up to five attempts, each after a sleep of 350 ms. When all fail, five more
    /// once the `holders` and what the service has adopted of the user's have gone, or when those would have been
    /// killed in vain. What is still held then stays mounted. When no task can be had, it blocks for the first five
    /// attempts and makes no others. The object's end does the same, without holders.
    void leave(const std::vector<ProcessHandle>& holders, uid_t user) noexcept;

private:
    friend class ProfileVolumes;
    struct Home;

    ProfileMount(BackgroundTasks& tasks, std::shared_ptr<Home> home) : tasks_(&tasks), home_(std::move(home)) {}

    BackgroundTasks* tasks_ = nullptr; // set whenever home_ is
    std::shared_ptr<Home> home_;
};

/// Which homes have a profile on them, and how many sessions use each. One thread at a time; the mounts may outlive it.
class ProfileVolumes {
public:
    /// Mounts the user's profile partition on `home` if there is one, or uses what is mounted there already for another
    /// session of the user's. `tasks` runs the unmounting and must outlive the result. None when that fails: a failed
    /// mount is logged under "sessionMountProfile", a missing partition is not. No link is followed but root's own (see
    /// walkTo).
    ProfileMount mount(BackgroundTasks& tasks, const std::string& username, const std::string& home,
                       const std::string& fstype, const std::string& option);

private:
    // Never forgotten: there are as many as users with a profile, and one may stay mounted when nobody uses it.
    std::map<std::string, std::shared_ptr<ProfileMount::Home>> homes_;
};

} // namespace Vard
