// A small file that goes with its object.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace Doors {

/// Owns a file in a directory of the connector's own and removes it in the end.
class OwnedFile {
public:
    /// Writes the file whole under a new name and moves it into its place, so that no reader sees half of it and no
    /// link is followed. Throws std::system_error.
    OwnedFile(std::filesystem::path path, const std::string& text, mode_t mode);
    /// Removes the file.
    ~OwnedFile();
    OwnedFile(const OwnedFile&) = delete;
    OwnedFile& operator=(const OwnedFile&) = delete;

    /// Where the file is.
    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    /// Replaces the content in the same way.
    void replace(const std::string& text);

private:
    std::filesystem::path path_;
    mode_t mode_;
};

} // namespace Doors
