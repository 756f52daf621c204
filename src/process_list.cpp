// The processes of a user, as the kernel shows them.
#include "process_list.h"

#include "json_writer.h"
#include "logger.h"

#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <filesystem>
#include <optional>

namespace fs = std::filesystem;

namespace Vard {

namespace {

std::optional<pid_t> processId(const std::string& name) {
    pid_t pid = 0;
    const auto [end, failed] = std::from_chars(name.data(), name.data() + name.size(), pid);
    return failed == std::errc{} && end == name.data() + name.size() ? std::optional(pid) : std::nullopt;
}

std::string processJson(pid_t pid, const fs::path& directory) {
    std::error_code ended;
    ObjectWriter json;
    json.number("pid", pid);
    json.text("cmd", fs::read_symlink(directory / "exe", ended).string());
    return json.finish();
}

} // namespace

std::string processesJson(uid_t uid, const char* func) {
    ArrayWriter processes;
    std::error_code failed;
    for (fs::directory_iterator it("/proc", failed), end; !failed && it != end; it.increment(failed)) {
        const auto pid = processId(it->path().filename());
        if (!pid) {
            continue;
        }
        struct stat info {};
        if (::stat(it->path().c_str(), &info) != 0) {
            Utils::syslogErrno(func, "stat", errno);
            continue;
        }
        if (info.st_uid == uid && !processes.append(processJson(*pid, it->path()))) {
            Syslog::warning("%s: too many processes, uid: %d", func, static_cast<int>(uid));
            break;
        }
    }
    return processes.finish();
}

} // namespace Vard
