// Paths that users may reach, walked by root.
#pragma once

#include "file_descriptor.h"

#include <filesystem>
#include <functional>
#include <string>

namespace Vard {

/// Whether the last name of a path may be a link.
enum class LastLink { refused, followed };

/// Asked to make the directory `name`, which is missing, in `parent`; `last`: it is the path's own. False ends the
/// walk.
using MakeMissing = std::function<bool(int parent, const std::string& name, bool last)>;

/// Opens the directory at an absolute path (O_PATH), name by name from the root, so that nobody changes the way
/// meanwhile. A link is followed only when root made it and it lies in a directory that only root can write to. None,
/// with errno set, when there is another link (ELOOP), something else than a directory, or nothing and `make` does not
/// help. Any thread; blocks as long as the file systems do.
FileDescriptor walkTo(const std::filesystem::path& path, LastLink last, const MakeMissing& make = {});

} // namespace Vard
