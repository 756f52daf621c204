// The certificate that the transports show.
#include "certificate.h"

#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

namespace Doors {

namespace {

int runTool(const std::string& directory) {
    std::string words[] = {"/usr/bin/winpr-makecert", "-silent", "-y", "5", "-path", directory, "shadow"};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(),
                         words[4].data(), words[5].data(), words[6].data(), nullptr};
    char* environment[] = {nullptr};
    pid_t pid = 0;
    const int failed = ::posix_spawn(&pid, arguments[0], nullptr, nullptr, arguments, environment);
    if (failed != 0) {
        sd_journal_print(LOG_ERR, "%s: %s: %s", "ensureCertificate", arguments[0], std::strerror(failed));
        return -1;
    }
    int status = -1;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

} // namespace

void ensureCertificate(const std::filesystem::path& stateDir) {
    const auto directory = stateDir / "freerdp" / "shadow";
    std::error_code ignored;
    if (std::filesystem::exists(directory / "shadow.crt", ignored) &&
        std::filesystem::exists(directory / "shadow.key", ignored)) {
        return;
    }
    std::filesystem::create_directories(directory);
    if (runTool(directory) != 0) {
        sd_journal_print(LOG_ERR, "%s: no certificate made", "ensureCertificate");
    }
}

void reportUnreadable(const std::filesystem::path& stateDir) {
    static std::chrono::steady_clock::time_point next;
    if (std::chrono::steady_clock::now() < next) {
        return;
    }
    for (const auto* name : {"shadow.crt", "shadow.key"}) {
        const auto file = stateDir / "freerdp" / "shadow" / name;
        if (::access(file.c_str(), R_OK) != 0) {
            sd_journal_print(LOG_ERR, "certificate: %s cannot be read, no client gets in: %s", file.c_str(),
                             std::strerror(errno));
            next = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        }
    }
}

} // namespace Doors
