// The X server's command line.
#pragma once

#include <filesystem>
#include <list>
#include <string>

namespace Vard {

/// The colour depth an X server is started with: 16 and 24 as asked, anything else 24 after a warning under
/// "runXvfbDisplay".
unsigned validDepth(unsigned char depth);

/// The X server's arguments: `templates` (the built-in list when empty) with %{display}, %{depth}, %{width}, %{height}
/// and %{authfile} filled in. Throws std::invalid_argument when a value contains the placeholder it replaces.
std::list<std::string> serverArguments(const std::list<std::string>& templates, unsigned display, unsigned depth,
                                       unsigned short width, unsigned short height,
                                       const std::filesystem::path& authfile);

} // namespace Vard
