// Reading files that are somebody else's, and writing whole ones.
#include "small_file.h"

#include "file_descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace Vard::Utils {

namespace {

constexpr size_t smallFile = 64 << 10;

} // namespace

std::string readFile(const std::filesystem::path& path, size_t most, LastLink last) {
    const int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | (last == LastLink::followed ? 0 : O_NOFOLLOW);
    const FileDescriptor file(::open(path.c_str(), flags));
    struct stat info {};
    if (!file || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return "";
    }
    // The kernel's own files have contents but no size.
    std::string text(std::min(most, static_cast<size_t>(info.st_size) + smallFile), '\0');
    size_t done = 0;
    for (ssize_t count = 1; count != 0 && done < text.size();) {
        count = ::read(file.get(), text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) {
            return "";
        }
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    text.resize(done);
    return text;
}

std::string readSmallFile(const std::filesystem::path& path, bool followLink) {
    return readFile(path, smallFile, followLink ? LastLink::followed : LastLink::refused);
}

bool writeAll(int fd, std::string_view text) noexcept {
    while (!text.empty()) {
        const ssize_t count = ::write(fd, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(count > 0 ? static_cast<size_t>(count) : 0);
    }
    return true;
}

} // namespace Vard::Utils
