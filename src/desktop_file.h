// Desktop entry files, as far as the program list needs them.
#pragma once

#include <filesystem>
#include <string>

namespace Vard {

/// What is kept of one desktop entry.
struct DesktopFile {
    std::string name; ///< "Name="
    std::string nameRu; ///< "Name[ru]="
    std::string genericName; ///< "GenericName="
    std::string genericNameRu; ///< "GenericName[ru]="
    std::string exec; ///< "Exec="
    bool application = false;
    bool terminal = false;
    bool hidden = false;

    /// Reads the "[Desktop Entry]" group. Anything but a readable regular file of at most 1 MiB gives the empty record.
    /// The bytes are kept as they stand, valid UTF-8 or not.
    static DesktopFile parse(const std::filesystem::path& path);
};

} // namespace Vard
