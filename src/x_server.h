// What must be true of a display before its X server starts.
#pragma once

#include "user_database.h"

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace Vard {

/// Removes what a user has put at the path: a link itself, a mount, a directory, which goes aside with all that is in
/// it. True when nothing is left there. Any thread.
bool removeObject(const std::filesystem::path& path);
/// The same for a place of the display's that must be free; tells the administrator whose it was. True when something
/// was there and is gone.
bool removeForeign(unsigned display, const std::filesystem::path& path, uid_t user);
/// Clears a display of the service's for its next X server: removes the socket, the lock files /tmp/.X<N>-lock and
/// /tmp/.tX<N>-lock, and the keymap /tmp/server-<N>.xkm, whoever made them; what has another owner than `user` is
/// logged with that owner. A directory with something in it is moved aside. What root made stays while root's server
/// runs. Empty when the display is clear, else what stands in the way. Never follows a link, never blocks. Any thread.
std::string clearDisplay(unsigned display, const std::filesystem::path& socket, uid_t user = unknownUid);
/// Clears a display that a killed instance, or a machine that lost its power, has left: nobody listens on its socket,
/// or there is none and the process that its lock file names has gone. Any thread.
void clearDeadDisplay(unsigned display, const std::filesystem::path& socket);
/// True when something of somebody else's than `user` stands where the display's socket, locks or keymap belong. Any
/// thread.
bool isDisturbed(unsigned display, const std::filesystem::path& socket, uid_t user);
/// The same for a start that has failed: looks for a tenth of a second, since who disturbs starts puts things there and
/// takes them away again and again.
bool wasDisturbed(unsigned display, const std::filesystem::path& socket, uid_t user);

} // namespace Vard
