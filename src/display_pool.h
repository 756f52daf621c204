// Which of the displays can be had for a new session, and the right to one.
#pragma once

#include "display_names.h"
#include "display_range.h"
#include "process_handle.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace Vard {

/// The right to a display: as long as anybody holds a copy, it is not handed out again. The session's record has one,
/// and so has whoever waits for its X server, whose end takes the display's files away. Any thread.
class DisplayRight {
public:
    /// The right to nothing.
    DisplayRight() = default;

    /// The number of the display; 0 for no right.
    [[nodiscard]] uint32_t display() const { return display_ ? *display_ : 0; }
    /// True when it is the right to a display.
    explicit operator bool() const { return display_ != nullptr; }

private:
    friend class DisplayPool;
    explicit DisplayRight(std::shared_ptr<const uint32_t> display) : display_(std::move(display)) {}

    std::shared_ptr<const uint32_t> display_;
};

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

    /// Where the X server of a display has its socket.
    using SocketOf = std::function<std::filesystem::path(uint32_t display)>;

    /// The first of the displays that can be had now; else, after a second at most, one whose session is just ending;
    /// else one that rests. None when there is none. Why a display is passed over is logged under "startSession"; what
    /// others have put in the way of a server is removed.
    DisplayRight take(const std::vector<uint32_t>& displays, const SocketOf& socketOf);
    /// Lets go of late servers that have ended.
    void forgetEnded();
    /// The server of a failed start may still come up: the display is passed over until it has gone.
    void late(uint32_t display, const ProcessHandle& server);
    /// Somebody disturbed a start on the display: it rests for a minute.
    void rest(uint32_t display);
    /// True while the display rests.
    [[nodiscard]] bool rests(uint32_t display) const;

private:
    using Clock = std::chrono::steady_clock;
    /// What came of the attempt to take one display.
    struct Attempt {
        DisplayRight right; // none: not to be had
        bool ending = false; // an earlier session has it still
    };

    Attempt attempt(uint32_t display, const SocketOf& socketOf, bool evenResting);
    DisplayRight waitForOne(std::vector<uint32_t> ending, const SocketOf& socketOf);
    DisplayRight resting(const std::vector<uint32_t>& displays, const SocketOf& socketOf);
    DisplayRight rightTo(uint32_t display);
    bool serverGone(uint32_t display);
    bool claim(uint32_t display, const std::filesystem::path& socket, bool evenResting);
    bool claimName(uint32_t display);

    mutable std::mutex mutex_;
    bool isolated_ = false;
    DisplayNames names_;
    std::vector<std::weak_ptr<const uint32_t>> rights_;
    std::map<uint32_t, ProcessHandle> lateServers_;
    std::map<uint32_t, Clock::time_point> resting_; // until when
    std::map<uint32_t, uid_t> nameOwners_;
    Clock::time_point nameOwnersUntil_; // nobody looks again before
};

} // namespace Vard
