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

/// Removes what a dead X server left of a display: the socket, the lock file /tmp/.X<N>-lock, the keymap
/// /tmp/server-<N>.xkm. Nothing is touched while somebody answers on `socket` (file or abstract name). Empty when the
/// display is clear, else what stands in the way. Never follows a link, never blocks. Any thread.
std::string clearDisplay(unsigned display, const std::filesystem::path& socket);
/// Makes sure that a display is free for a new X server, which can then start at once: true when it is clear, or could
/// be cleared. False after a warning under "startSession" that says why it is passed over. Any thread.
bool claimDisplay(unsigned display, const std::filesystem::path& socket);

} // namespace Vard
