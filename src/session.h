// The record of one session, and its destruction.
#pragma once

#include "background_tasks.h"
#include "display_pool.h"
#include "notice_list.h"
#include "pam_service.h"
#include "process_handle.h"
#include "profile_volume.h"
#include "secret.h"
#include "user_children.h"
#include "xauthority.h"
#include "xcb_connector.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace Vard {

/// Of what a proxy reports as a client's address so many bytes are kept; the longest that is one has 45.
inline constexpr size_t longestAddress = 64;

/// What changes in a session once it is in the table. Reached through the table's view, which holds its lock.
struct SessionState {
    std::chrono::steady_clock::time_point transportEndedAt{}; ///< zero while never set
    std::string domain;
    std::string remoteaddr;
    Secret ntlm; ///< the NTLM hash line
    uint32_t durationLimit = 0; ///< seconds, 0: none
    uint32_t inactivityLimit = 0; ///< seconds, 0: none; only stored
    ProcessHandle pid1; ///< the X server
    ProcessHandle pid2; ///< the session program's supervisor
    ProcessHandle pid3; ///< the transport
    bool nla = true;
    bool tls = true;
    bool rdp = true;
    bool auth = true;
    bool seamless = false;
};

/// One session, always held through a shared pointer. Its own members are set before it enters the table and read by
/// any thread then; what changes later is in its state. Destruction tells the session's processes to end (it does not
/// wait for them), removes the X authority file, and unmounts the profile in the background.
struct Session {
    /// `tasks` runs the unmounting, `users` knows how the users' children fared; both must outlive the record.
    Session(BackgroundTasks& tasks, UserChildren& users) : tasks_(tasks), users_(users) {}
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// DISPLAY, XAUTHORITY and XDG_RUNTIME_DIR as NAME=value, then the PAM environment without these three.
    [[nodiscard]] std::list<std::string> environments() const;
    /// The file that takes the outputs of the session's logged commands: in ".vard" in the home directory, named after
    /// the X authority file.
    [[nodiscard]] std::filesystem::path commandLog() const;
    /// Where background work of this session runs.
    [[nodiscard]] BackgroundTasks& tasks() const { return tasks_; }
    /// How the children of this session's and all other users fared.
    [[nodiscard]] UserChildren& users() const { return users_; }

    /// Keeps the display from being handed out again; declared first, so that it goes when everything else of the
    /// record has.
    DisplayRight displayRight;
    std::filesystem::path home;
    XAuthorityFile xauthfile;
    ProfileMount profile; ///< none when the user has no profile partition
    std::filesystem::path runtimedir;
    std::filesystem::path xsession; ///< the program run as the user's session
    std::chrono::system_clock::time_point start{};
    std::string gecos;
    std::string shell;
    std::string username;
    uint32_t uid = 0;
    uint32_t gid = 0;
    uint32_t display = 0;
    uint32_t sid = 0; ///< the session id, equal to the display
    NoticeList notices; ///< notification programs
    NoticeList attempts; ///< those that tell of attempts to connect
    std::unique_ptr<PamService> pam;
    std::shared_ptr<Xcb::Connector> xcb;
    std::mutex lock; ///< held by the destructor while it ends the children
    bool homeMissing = false; ///< when the session was started
    std::atomic<int> requests{0}; ///< that work on it at this moment: its end is not noticed before theirs
    std::atomic<bool> ended{false}; ///< out of the table: work that still holds the record is to end soon

private:
    friend class SessionTable;
    friend class TableView;

    void endChildren();

    SessionState state_;
    BackgroundTasks& tasks_;
    UserChildren& users_;
};

/// Marks a session as worked on by a request while it lives, so that the session's end is not noticed before the
/// request has been answered. Any thread.
class RequestHold {
public:
    /// Holds none.
    RequestHold() = default;
    /// Marks the session.
    explicit RequestHold(std::shared_ptr<Session> session) : session_(std::move(session)) { ++session_->requests; }
    RequestHold(RequestHold&&) = default;
    RequestHold& operator=(RequestHold&& other) noexcept {
        if (this != &other) {
            reset();
            session_ = std::move(other.session_);
        }
        return *this;
    }
    RequestHold(const RequestHold&) = delete;
    RequestHold& operator=(const RequestHold&) = delete;
    ~RequestHold() { reset(); }

    /// The session; empty when none is held.
    [[nodiscard]] const std::shared_ptr<Session>& session() const { return session_; }
    /// The session's members, when one is held.
    [[nodiscard]] Session& operator*() const { return *session_; }
    [[nodiscard]] Session* operator->() const { return session_.get(); }
    /// True when one is held.
    explicit operator bool() const { return session_ != nullptr; }
    /// Lets go of the session.
    void reset() noexcept {
        if (const auto session = std::exchange(session_, nullptr)) {
            --session->requests;
        }
    }

private:
    std::shared_ptr<Session> session_;
};

} // namespace Vard
