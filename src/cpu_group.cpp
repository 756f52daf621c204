// The service's own CPU group. Programs built on these rooms are to be able to enter it; nothing here calls it.
#include "cpu_group.h"

#include "file_descriptor.h"
#include "logger.h"
#include "small_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

namespace fs = std::filesystem;

namespace Vard {

void movingProcessToVardCgroup() {
    const fs::path cgroup = "/sys/fs/cgroup/cpu";
    std::error_code failed;
    if (!fs::is_directory(cgroup, failed)) {
        Syslog::error("%s: cgroup not found: %s", "movingProcessToVardCgroup", cgroup.c_str());
        return;
    }
    const fs::path slice = cgroup / "vard.slice";
    if (::mkdir(slice.c_str(), 0755) != 0 && errno != EEXIST) {
        Utils::syslogErrno("movingProcessToVardCgroup", "mkdir", errno);
        return;
    }
    const FileDescriptor procs(::open((slice / "cgroup.procs").c_str(), O_WRONLY | O_CLOEXEC));
    if (!procs || !Utils::writeAll(procs.get(), std::to_string(::getpid()))) {
        Utils::syslogErrno("movingProcessToVardCgroup", "cgroup.procs", errno);
    }
}

} // namespace Vard
