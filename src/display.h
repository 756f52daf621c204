// One X display of a session: its authority, its server, its socket, our connection to it.
#pragma once

#include "background_tasks.h"
#include "child_waits.h"
#include "deadline.h"
#include "display_pool.h"
#include "json_config.h"
#include "process_handle.h"
#include "socket_nest.h"
#include "user_children.h"
#include "xauthority.h"
#include "xcb_connector.h"

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Vard {

/// What all displays share.
struct DisplayServices {
    DisplayPool& pool;
    UserChildren& users;
    ChildWaits& children;
    BackgroundTasks& tasks;
};

/// How a display is to look at first.
struct DisplayFormat {
    unsigned char depth = 24; ///< bits for each pixel's colour
    unsigned short width = 1280; ///< pixels, as the next
    unsigned short height = 1024;
};

/// Where the X server of a display has its socket.
std::filesystem::path displaySocket(const JsonConfig& settings, uint32_t display);

/// Writes the authority file of a display into `directory`, with a fresh cookie, which is the second of the results.
/// Throws vard_error("createXauthFile"), after an error line, when it cannot be written.
std::pair<XAuthorityFile, std::vector<uint8_t>> createXauthFile(const std::filesystem::path& directory,
                                                                unsigned display, const std::string& user,
                                                                const JsonConfig& settings);

/// Starts the X server of a display under the user's identity and returns its process id. It has a network namespace of
/// its own when `isolated`, and makes its socket in the nest when there is one. Throws vard_error, after an error line.
pid_t runXvfbDisplay(unsigned display, const DisplayFormat& format, const std::string& user,
                     const std::filesystem::path& authfile, const JsonConfig& settings, bool isolated,
                     const SocketNest* nest = nullptr);

/// A display on its way to a session. Each step says in the journal why it failed; then the start has failed. The
/// server belongs to whoever takes it over: it goes on when the object goes, and its end clears the display. Main
/// thread.
class Display {
public:
    /// For the user `user` with the id `uid`. The settings and the services must outlive the object.
    Display(DisplayRight right, std::string user, uid_t uid, const JsonConfig& settings, DisplayServices services);

    /// The X server; no process before it is started.
    [[nodiscard]] const ProcessHandle& server() const { return server_; }

    /// Starts the server.
    bool start(const DisplayFormat& format, const std::filesystem::path& authfile);
    /// Waits for the server's socket, as long as the service has patience with the user.
    bool wait();
    /// Makes the socket the session's: the user's own and the transports', in its usual place.
    bool open();
    /// Connects to the server; none when that fails in every attempt.
    std::shared_ptr<Xcb::Connector> connect(const std::vector<uint8_t>& cookie);
    /// After a failure: the display rests when somebody has disturbed the start.
    void restIfDisturbed();

private:
    using Clock = std::chrono::steady_clock;

    [[nodiscard]] bool disturbed() const;
    [[nodiscard]] bool worthWaiting(const Deadline& end) const;
    void giveUpSocket();
    bool publish();
    [[nodiscard]] std::optional<gid_t> transportGroup() const;
    std::shared_ptr<Xcb::Connector> connectOnce(const std::vector<uint8_t>& cookie, std::chrono::milliseconds limit);

    DisplayRight right_;
    std::string user_;
    uid_t uid_;
    const JsonConfig& settings_;
    DisplayServices services_;
    std::filesystem::path usual_; // where clients look for the socket
    std::filesystem::path socket_; // where the server makes it
    std::shared_ptr<SocketNest> nest_; // none where the server is reached by anybody
    ProcessHandle server_;
};

} // namespace Vard
