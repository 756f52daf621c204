// The abstract socket names of X displays.
#pragma once

#include "file_descriptor.h"

#include <sys/types.h>

#include <cstdint>
#include <map>

namespace Vard {

/// Holds abstract names of displays, bound and not listening. X clients try the abstract name before the path: refused
/// there by a name that is held, they take the path, while a stranger who listened on it would be given the session's
/// cookie. The service manager keeps copies, so that nobody takes the names while the service starts anew. One thread
/// at a time.
class DisplayNames {
public:
    /// Takes over what the service manager has kept. Once, before there are threads: it empties variables of the
    /// environment.
    void restore();
    /// Holds the display's name from now on; false when somebody else has it.
    bool hold(uint32_t display);
    /// Lets go of all, so that servers may take them, and waits for the service manager to do so: half a second at
    /// most.
    void letGoAll();
    /// True when nobody has the display's name, held by this object or not. It is not held afterwards.
    static bool isFree(uint32_t display);

private:
    std::map<uint32_t, FileDescriptor> held_;
};

/// The users whose sockets have the abstract names of displays, as far as the kernel tells: users can make its list
/// long. Blocks for a few tenths of a second at most. Any thread.
std::map<uint32_t, uid_t> displayNameOwners();

} // namespace Vard
