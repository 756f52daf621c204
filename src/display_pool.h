// Which of the displays can be had for a new session.
#pragma once

#include "display_names.h"
#include "process.h"
#include "session_table.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>

namespace Vard {

/// Which displays can be had: their names are the service's, nobody else's server is on them, none of ours is late, and
/// nobody disturbed the last start there. Any thread.
class DisplayPool {
public:
    /// Takes over the names that the service manager has kept. Before there are threads.
    DisplayPool();
    /// True when the machine has the namespaces for X servers of their own; where it has none, a warning says so once.
    /// Tries it at the first call, which may take seconds: under no lock.
    static bool canIsolate();
    /// Takes over a range of displays. With `isolate`, X servers are to be started in a network namespace of their own,
    /// and the range's abstract names are held.
    void configure(const DisplayRange& range, bool isolate);
    /// True when X servers are started in a network namespace of their own.
    [[nodiscard]] bool isolated() const;

    /// False, after a warning under "startSession", while the server of a failed start is still on the display; it is
    /// told to end. Comes before the right to the display, which whoever waits for that server holds.
    bool serverGone(uint32_t display);
    /// Lets go of late servers that have ended.
    void forgetEnded();
    /// Makes sure that an X server can start on the display, whose socket is `socket`: foreign objects are removed.
    /// False after a warning under "startSession" that says why the display is passed over. One that rests is had only
    /// when `evenResting`.
    bool claim(uint32_t display, const std::filesystem::path& socket, bool evenResting);
    /// The server of a failed start may still come up: the display is passed over until it has gone.
    void late(uint32_t display, const ProcessHandle& server);
    /// Somebody disturbed a start on the display: it rests for a minute.
    void rest(uint32_t display);
    /// True while the display rests.
    [[nodiscard]] bool rests(uint32_t display) const;

private:
    using Clock = std::chrono::steady_clock;

    bool claimName(uint32_t display);

    mutable std::mutex mutex_;
    bool isolated_ = false;
    DisplayNames names_;
    std::map<uint32_t, ProcessHandle> lateServers_;
    std::map<uint32_t, Clock::time_point> resting_; // until when
    std::map<uint32_t, uid_t> nameOwners_;
    Clock::time_point nameOwnersUntil_; // nobody looks again before
};

} // namespace Vard
