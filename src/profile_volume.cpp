// Users' profile partitions.
#include "profile_volume.h"

#include "deadline.h"
#include "file_descriptor.h"
#include "logger.h"
#include "overdue_child.h"
#include "own_children.h"
#include "trusted_path.h"
#include "user_database.h"

#include <blkid/blkid.h>
#include <sys/mount.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>

namespace Vard {

namespace {

constexpr int unmountAttempts = 5;
constexpr std::chrono::milliseconds unmountPause{350};

// In which whatever the service has told to end has ended, or never will.
constexpr std::chrono::seconds processesEnd = endGrace + killedGrace;

std::string blkPartLabel(blkid_dev dev) {
    std::string label;
    const char* type = nullptr;
    const char* value = nullptr;
    blkid_tag_iterate tags = ::blkid_tag_iterate_begin(dev);
    while (::blkid_tag_next(tags, &type, &value) == 0) {
        if (std::strcmp(type, "PARTLABEL") == 0) {
            label = value;
            break;
        }
    }
    ::blkid_tag_iterate_end(tags);
    return label;
}

std::string blkPartEntryType(blkid_dev dev) {
    const std::unique_ptr<blkid_struct_probe, decltype(&::blkid_free_probe)> probe(
        ::blkid_new_probe_from_filename(::blkid_dev_devname(dev)), &::blkid_free_probe);
    if (!probe) {
        return "";
    }
    ::blkid_probe_enable_partitions(probe.get(), 1);
    ::blkid_probe_set_partitions_flags(probe.get(), BLKID_PARTS_ENTRY_DETAILS);
    ::blkid_do_fullprobe(probe.get());
    const char* value = nullptr;
    return ::blkid_probe_lookup_value(probe.get(), "PART_ENTRY_TYPE", &value, nullptr) == 0 ? value : "";
}

std::list<PVOL> listDevices(blkid_cache cache) {
    std::list<PVOL> result;
    blkid_dev dev = nullptr;
    blkid_dev_iterate devices = ::blkid_dev_iterate_begin(cache);
    while (::blkid_dev_next(devices, &dev) == 0) {
        if (const char* name = ::blkid_dev_devname(dev)) {
            result.push_back({name, blkPartEntryType(dev), blkPartLabel(dev)});
        }
    }
    ::blkid_dev_iterate_end(devices);
    return result;
}

std::string kernelPath(const FileDescriptor& directory) { return "/proc/self/fd/" + std::to_string(directory.get()); }

/// The directory of a home, and its path without links, for the unmounting: the links may change meanwhile.
struct Place {
    FileDescriptor directory;
    std::string path;
};

// No link of a user's is followed. None, with errno set, when there is no such directory.
Place placeOf(const std::string& home) {
    Place place{walkTo(home, LastLink::followed), ""};
    std::error_code failed;
    if (place.directory) {
        place.path = std::filesystem::read_symlink(kernelPath(place.directory), failed);
    }
    return place;
}

bool mountOn(const Place& place, const std::string& devname, const std::string& fstype, const char* data) {
    return place.directory &&
           ::mount(devname.c_str(), kernelPath(place.directory).c_str(), fstype.c_str(), 0, data) == 0;
}

} // namespace

std::list<PVOL> PVOL::getPartitions() {
    blkid_cache cache = nullptr;
    // A cache file that is nobody's: nothing is read from or kept in a persistent one.
    int code = ::blkid_get_cache(&cache, "/dev/null");
    if (code != 0) {
        Syslog::error("%s: %s failed, error: %d", "getPartitions", "blkid_get_cache", code);
        return {};
    }
    const std::unique_ptr<blkid_struct_cache, decltype(&::blkid_put_cache)> owner(cache, &::blkid_put_cache);
    code = ::blkid_probe_all(cache);
    if (code != 0) {
        Syslog::error("%s: %s failed, error: %d", "getPartitions", "blkid_probe_all", code);
        return {};
    }
    return listDevices(cache);
}

const PVOL* findProfileVolume(const std::list<PVOL>& partitions, const std::string& username) {
    const auto found = std::ranges::find_if(partitions, [&](const PVOL& volume) {
        return volume.type == profilePartitionType && volume.label == username;
    });
    return found == partitions.end() ? nullptr : &*found;
}

/// Who uses the profile on a home. Any thread.
struct ProfileMount::Home {
    // One more session uses it. False, after an error line, when it cannot be mounted.
    bool enter(const std::string& path, const std::string& devname, const std::string& fstype,
               const std::string& option) {
        const std::scoped_lock guard(lock);
        // The kernel refuses to mount it twice; it is there for another session of the user's, which may be on its way
        // out.
        const Place found = placeOf(path);
        const bool mounted = mountOn(found, devname, fstype, option.empty() ? nullptr : option.c_str());
        if (!mounted && (errno != EBUSY || place.empty())) {
            Utils::syslogErrno("sessionMountProfile", "mount", errno);
            return false;
        }
        if (mounted) {
            place = found.path;
        }
        ++sessions;
        return true;
    }

    // One session less uses it. False when it was the last and the mount is still there.
    bool leave() {
        const std::scoped_lock guard(lock);
        if (sessions <= 1) {
            if (::umount2(place.c_str(), UMOUNT_NOFOLLOW) != 0) {
                return false;
            }
            place.clear();
        }
        --sessions;
        return true;
    }

    bool leaveInTime() {
        for (int attempt = 0; attempt < unmountAttempts; ++attempt) {
            std::this_thread::sleep_for(unmountPause);
            if (leave()) {
                return true;
            }
        }
        return false;
    }

    // What is still held by others of the user's (another login) stays, rather than to vanish under them.
    void forget() {
        const std::scoped_lock guard(lock);
        --sessions;
    }

    void leaveAfter(const std::vector<ProcessHandle>& holders, uid_t user) {
        if (leaveInTime()) {
            return;
        }
        const auto held = [&] {
            return std::ranges::any_of(holders, &ProcessHandle::exists) || AdoptedChildren::any(user);
        };
        const auto giveUp = Deadline::in(processesEnd);
        while (held() && !giveUp.passed()) {
            std::this_thread::sleep_for(unmountPause);
        }
        if (!leaveInTime()) {
            forget();
        }
    }

    std::mutex lock; // held while the kernel mounts and unmounts, which may write out much
    int sessions = 0;
    std::string place; // what the home is without links, where the profile was mounted
};

ProfileMount::~ProfileMount() { leave({}, unknownUid); }

ProfileMount& ProfileMount::operator=(ProfileMount&& other) noexcept {
    if (this != &other) {
        leave({}, unknownUid);
        tasks_ = other.tasks_;
        home_ = std::exchange(other.home_, nullptr);
    }
    return *this;
}

void ProfileMount::leave(const std::vector<ProcessHandle>& holders, uid_t user) noexcept {
    const auto home = std::exchange(home_, nullptr);
    if (home && !tasks_->run("unmountProfile", [home, holders, user] { home->leaveAfter(holders, user); }) &&
        !home->leaveInTime()) {
        home->forget();
    }
}

ProfileMount ProfileVolumes::mount(BackgroundTasks& tasks, const std::string& username, const std::string& home,
                                   const std::string& fstype, const std::string& option) {
    const auto partitions = PVOL::getPartitions();
    const PVOL* volume = findProfileVolume(partitions, username);
    if (volume == nullptr) {
        return {};
    }
    auto& use = homes_[home];
    if (!use) {
        use = std::make_shared<ProfileMount::Home>();
    }
    return use->enter(home, volume->devname, fstype, option) ? ProfileMount(tasks, use) : ProfileMount();
}

} // namespace Vard
