// Users' profile partitions.
#include "profile_volume.h"

#include "file_descriptor.h"
#include "logger.h"

#include <blkid/blkid.h>
#include <fcntl.h>
#include <sys/mount.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace Vard {

namespace {

constexpr int unmountAttempts = 5;
constexpr std::chrono::milliseconds unmountPause{350};

// How many sessions use the profile on a home: it goes with the last.
std::mutex usersLock;
std::map<std::string, int> users;
constexpr std::chrono::seconds usersEnd{12}; // a child told to end is killed after ten

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

// Mounts on the directory itself, never on what a link in its place points to. Sets errno on failure.
bool mountOn(const std::string& directory, const std::string& devname, const std::string& fstype, const char* data) {
    const FileDescriptor target(::open(directory.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!target) {
        return false;
    }
    const std::string path = "/proc/self/fd/" + std::to_string(target.get());
    return ::mount(devname.c_str(), path.c_str(), fstype.c_str(), 0, data) == 0;
}

void forgetLocked(const std::string& home) {
    const auto entry = users.find(home);
    if (entry != users.end() && --entry->second == 0) {
        users.erase(entry);
    }
}

// Ends one session's use of the profile. False when it was the last and the mount is still there.
bool leave(const std::string& home, int flags) {
    const std::scoped_lock lock(usersLock);
    const auto entry = users.find(home);
    const bool shared = entry != users.end() && entry->second > 1;
    if (!shared && ::umount2(home.c_str(), UMOUNT_NOFOLLOW | flags) != 0) {
        return false;
    }
    forgetLocked(home);
    return true;
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

bool mountProfile(const std::string& username, const std::string& home, const std::string& fstype,
                  const std::string& option) {
    const auto partitions = PVOL::getPartitions();
    const PVOL* volume = findProfileVolume(partitions, username);
    if (volume == nullptr) {
        return false;
    }
    const std::scoped_lock lock(usersLock);
    // The kernel refuses to mount it twice; it is there for another session of the user's, which may be on its way out.
    const bool usable = mountOn(home, volume->devname, fstype, option.empty() ? nullptr : option.c_str()) ||
                        (errno == EBUSY && users.contains(home));
    if (!usable) {
        Utils::syslogErrno("sessionMountProfile", "mount", errno);
        return false;
    }
    ++users[home];
    return true;
}

void unmountProfile(const std::string& home, const std::function<bool()>& inUse) {
    for (int attempt = 0; attempt < unmountAttempts; ++attempt) {
        std::this_thread::sleep_for(unmountPause);
        if (leave(home, 0)) {
            return;
        }
    }
    const auto giveUp = std::chrono::steady_clock::now() + usersEnd;
    while (inUse && inUse() && std::chrono::steady_clock::now() < giveUp) {
        std::this_thread::sleep_for(unmountPause);
    }
    // Whoever still holds a file in there keeps it; for all others the profile has gone.
    if (!leave(home, 0) && !leave(home, MNT_DETACH)) {
        const std::scoped_lock lock(usersLock);
        forgetLocked(home);
    }
}

} // namespace Vard
