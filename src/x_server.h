// What must be true of a display before its X server starts, and the server's command line.
#pragma once

#include <filesystem>
#include <list>
#include <string>

namespace Vard {

/// The colour depth an X server is started with: 16 and 24 as asked, anything else 24 after a warning under
/// "runXvfbDisplay".
unsigned validDepth(unsigned char depth);

/// The X server's arguments: `templates` (the built-in list when empty) with %{display}, %{depth}, %{width}, %{height}
/// and
/// %{authfile} filled in. Throws std::invalid_argument when a value contains the placeholder it replaces.
std::list<std::string> serverArguments(const std::list<std::string>& templates, unsigned display, unsigned depth,
                                       unsigned short width, unsigned short height,
                                       const std::filesystem::path& authfile);

/// Makes sure that a display is free for a new X server: true when nobody answers on its socket `socket` (file and
/// abstract name), after removing what a dead server left (the socket, the lock file /tmp/.X<N>-lock, the keymap
/// /tmp/server-<N>.xkm), so that the new server can start at once. False, after a warning under "startSession" that
/// names the display, when somebody answers there or the leftovers cannot be removed. Never follows a link. Never
/// blocks.
bool claimDisplay(unsigned display, const std::filesystem::path& socket);

} // namespace Vard
