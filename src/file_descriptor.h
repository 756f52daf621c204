// An owning file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace Vard {

/// Owns one descriptor and closes it when destroyed. Movable, not copyable.
class FileDescriptor {
public:
    FileDescriptor() = default;
    /// Takes over `fd`; a negative value means none.
    explicit FileDescriptor(int fd) noexcept : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { reset(); }

    /// The descriptor, still owned here; -1 when none.
    [[nodiscard]] int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }

    /// Gives the descriptor away.
    [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }
    /// Closes the owned descriptor and takes over `fd`.
    void reset(int fd = -1) noexcept {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

} // namespace Vard
