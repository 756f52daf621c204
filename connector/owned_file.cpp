// A small file that goes with its object.
#include "owned_file.h"

#include "file_descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace Doors {

namespace {

[[noreturn]] void fail(const std::filesystem::path& path) {
    throw std::system_error(errno, std::generic_category(), path.string());
}

} // namespace

OwnedFile::OwnedFile(std::filesystem::path path, const std::string& text, mode_t mode)
    : path_(std::move(path)), mode_(mode) {
    replace(text);
}

OwnedFile::~OwnedFile() { ::unlink(path_.c_str()); }

void OwnedFile::replace(const std::string& text) {
    const auto fresh = path_.string() + ".new";
    ::unlink(fresh.c_str());
    const Vard::FileDescriptor file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file || ::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        ::fchmod(file.get(), mode_) != 0 || ::rename(fresh.c_str(), path_.c_str()) != 0) {
        const int error = errno;
        ::unlink(fresh.c_str());
        errno = error;
        fail(path_);
    }
}

} // namespace Doors
