// The one service object: its header is the table of contents of the files that make it.
#pragma once

#include "audit_log.h"
#include "background_tasks.h"
#include "child_waits.h"
#include "dispatcher.h"
#include "display_pool.h"
#include "json_config.h"
#include "logger.h"
#include "own_children.h"
#include "profile_volume.h"
#include "program_list.h"
#include "runtime_directory.h"
#include "session_table.h"
#include "session_watch.h"
#include "socket_nest.h"
#include "user_children.h"

#include <dbus-c++/dbus.h>
#include <vard_adaptor.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vard {

/// What a session start is asked for.
struct StartRequest {
    const std::string& user;
    const std::string& password;
    unsigned char depth = 24;
    unsigned short width = 1280;
    unsigned short height = 1024;
    std::filesystem::path program{};
    std::list<std::string> args{};
};

/// The security modes that a request names; those that it does not stay as they are in the session.
struct SecurityFlags {
    std::optional<bool> nla;
    std::optional<bool> tls;
    std::optional<bool> rdp;
    std::optional<bool> auth;
};

/// The bus object "/ru/korvex/vard". Methods run on the main thread, one at a time (only notices are sent from
/// background tasks too); the watchers run on the worker thread; everything else runs in counted background tasks.
/// Lock order: the session table's lock, then the child list's; neither is held while waiting on the bus or the audit
/// socket.
class DBusService final : public Syslog,
                          public ru::korvex::vard_adaptor,
                          public DBus::IntrospectableAdaptor,
                          public DBus::ObjectAdaptor {
public:
    // dbus_service.cpp: construction, the start of the service, configuration and its reload.

    /// Reads the configuration, makes the runtime directory and the pid file, opens the audit connection, loads the
    /// program list. Throws vard_error or jsoncpp's exception, after an error line, when the configuration cannot be
    /// used or the runtime directory cannot be made.
    DBusService(DBus::Connection& connection, const std::string& path);
    /// Removes the pid file and waits, in bounded time, for the background tasks.
    ~DBusService() override;
    DBusService(const DBusService&) = delete;
    DBusService& operator=(const DBusService&) = delete;

    /// Runs the service with the configuration file `path` until it is asked to stop. Main thread. Throws DBus::Error
    /// without a bus, std::runtime_error when another instance owns the name, and what the constructor throws.
    static void start(const std::string& path);

    // bus_boundary.cpp: every call gets an answer, whatever it is and whatever a method throws (private below).

    // service_status.cpp: alive, version, credentials test, stop, log level, audit records.

    /// Stops the service; the answer goes out first.
    void busServiceShutdown() override;
    /// Sets the log level; an unknown word is logged and changes nothing.
    void busSetDebugLevel(const std::string& value) override;
    /// Always true.
    bool vardStatus() override;
    /// The version.
    std::string vardTest() override;
    /// True when the account may be used and the password is right; the domain is only logged.
    bool vardTestConnect(const std::string& user, const std::string& domain, const std::string& pass) override;
    /// The same against a PAM service by name. Throws pam_error when PAM cannot be asked.
    bool vardCheckAuthUser(const std::string& user, const std::string& pass, const std::string& service) override;
    /// The load of five minutes as a percentage of all processors; 0 when it cannot be read.
    double vardLoadAverage() override;
    /// How many sessions have a program that runs.
    uint32_t zabbixSessionsTotal() override;
    /// How many sessions have a transport.
    uint32_t zabbixSessionsOnline() override;

    // service_queries.cpp: views of the session table.

    /// Display, user, start in local time, age in seconds, uid and gid of every session.
    std::vector<DBus::Struct<uint32_t, std::string, std::string, uint32_t, uint32_t, uint32_t>> busSessionsInfo()
        override;
    /// User and id of every session.
    std::vector<DBus::Struct<std::string, uint32_t>> vardSessions() override;
    /// The session's JSON object; "{}" for an unknown one. Waits for its X server at most two seconds.
    std::string vardSessionInfoJson(const uint32_t& session) override;
    /// An array of the objects of all the user's sessions.
    std::string vardUserInfoJson(const std::string& user) override;
    /// An array of the processes of the session's user; empty, after a warning, for an unknown session.
    std::string vardSessionProcess(const uint32_t& session) override;

    // service_shutdown.cpp: the ends of sessions on request and at the stop of the service.

    /// Ends the user's first session by slot; false, after a warning, when there is none.
    bool busSessionShutdown(const std::string& username) override;
    /// Ends the session; false, after a warning, for an unknown one.
    bool vardSessionShutdown(const uint32_t& session) override;
    /// Tells the transport to end; false when the session is unknown or has none.
    bool vardDisconnect(const uint32_t& session) override;
    /// Ends all sessions and all children, and waits for the children; a child that stays ten seconds is killed. Main
    /// thread, after the dispatcher and the worker have ended.
    void sessionsClear();

    // service_watchers.cpp: the worker thread, children waited for, limits.

    /// Sets the age in seconds above which the session ends; 0: never.
    void vardSessionDurationLimit(const uint32_t& session, const uint32_t& countsec) override;
    /// Stores a limit in seconds for the transport's side.
    void vardSessionInactivityLimit(const uint32_t& session, const uint32_t& countsec) override;

    // service_notify.cpp: notices to users.

    /// Shows a notice in the session; false for an unknown one. Any thread.
    bool vardSendNotify(const uint32_t& session, const std::string& header, const std::string& message,
                        const uint8_t& urgency) override;

    // service_requests.cpp: the session requests of the front ends.

    /// Starts or reuses the user's desktop: its id, or -1 with the reason in the journal. The password is not
    /// checked.
    int32_t busSessionRequest(const std::string& user, const std::string& pass, const uint8_t& depth,
                              const uint16_t& width, const uint16_t& height) override;
    /// The same with a domain.
    int32_t busSessionDomainRequest(const std::string& user, const std::string& domain, const std::string& pass,
                                    const uint8_t& depth, const uint16_t& width, const uint16_t& height) override;
    /// The same from a JSON object. Throws jsoncpp's exception or vard_error when it is none.
    int32_t vardSessionRequest(const std::string& params) override;
    /// Checks account and password, then starts the desktop with 1280x1024 in 24 bits.
    bool vardLogin(const std::string& user, const std::string& domain, const std::string& pass) override;
    /// A session that runs one published program.
    int32_t busProgramRequest(const std::string& user, const std::string& domain, const std::string& pass,
                              const uint16_t& width, const uint16_t& height, const std::string& prog) override;
    /// The names of the published programs, read anew.
    std::vector<std::string> vardProgramList() override;

    // service_transport.cpp: the handshake with the proxy and the transports, and the hash line that these need.

    /// The proxy has tried to listen for the session.
    void proxyListenStarted(const uint32_t& session, const bool& status) override;
    /// A client has reached the proxy: its address is shown to the user.
    void proxyClientConnected(const uint32_t& session, const std::string& ipaddr) override;
    /// The process serves the client from now on; the one before is told to end. Refused with an error line when it
    /// cannot be a transport.
    void proxySessionConnected(const uint32_t& session, const uint32_t& pid, const std::string& ipaddr) override;
    /// Tells the proxy a time-out.
    void proxyListenTimeout(const uint32_t& timeout) override;
    /// Stores what was negotiated.
    void vardRdpSecurityPolicy(const uint32_t& session, const bool& nla, const bool& tls, const bool& rdp) override;
    /// Asks the proxy to let a client in; false for an unknown session and while a transport runs.
    bool vardConnectRdpTransport(const uint32_t& session, const uint32_t& timeout) override;
    /// True since the proxy last reported to listen, until a client came.
    bool vardCheckProxyListen() override;

    // service_desktop.cpp: preparing a session's desktop, its size and its windows.

    /// Resizes the session's screen; returns when that is done.
    void vardSessionGeometry(const uint32_t& session, const uint16_t& width, const uint16_t& height) override;
    /// The address of the user's session bus as the user's files tell it; empty when none. At most three seconds.
    std::string vardSessionDBusAddress(const std::string& username) override;

private:
    using SessionPtr = std::shared_ptr<Session>;

    // dbus_service.cpp
    /// The configuration as it stands: one snapshot for one operation. Any thread.
    std::shared_ptr<const JsonConfig> config() const;
    /// The program list as it stands. Any thread.
    std::shared_ptr<const ProgramList> programs() const;
    void reloadPrograms(const JsonConfig& config);
    void applyRange(const DisplayRange& range, const JsonConfig& config);
    void createRuntimeDirectory();
    void removeStale() const;
    void writePidFile() const;
    std::filesystem::path pidFile() const;
    void run(const std::string& path);
    void reloadConfigWatcher(const std::string& path);
    void reloadConfig(const std::string& path);

    // bus_boundary.cpp
    bool handle_message(const DBus::Message& message) override;
    DBus::Message answer(const DBus::CallMessage& call);
    /// The user who made the call that is being answered; all ones when the bus does not tell. Main thread.
    uid_t callerUid();
    DBus::Message dispatchGuarded(DBus::InterfaceAdaptor& adaptor, const DBus::CallMessage& call,
                                  const std::string& method);

    // service_status.cpp
    void auditUserMessage(const unsigned& display, const char* address, int type, std::string_view operation,
                          std::string_view user, bool result);
    /// Emits a signal unless the bus has gone. Any thread; never under a lock. `emit` calls the adaptor's emitter.
    void emitSignal(const std::function<void()>& emit) noexcept;
    bool testConnect(const std::string& user, const std::string& domain, const std::string& pass);
    bool checkCredentials(const std::string& service, const std::string& user, const std::string& pass);

    // service_watchers.cpp
    void worker(const std::string& path);
    bool busAlive();
    void inBackground(const char* name, std::function<void()> notice);
    void stoppedChildsWatcher();
    void stoppedTransportWatcher();
    void durationLimitSessionsWatcher();
    void seamlessTimeoutWatcher();
    void sessionEnded(const Session& session, const std::string& address);
    void transportEnded(const Session& session, const std::string& address);
    void setLimit(const char* func, uint32_t sid, uint32_t seconds, uint32_t Session::*limit);
    /// Waits for a child in the background and runs `afterwards` once it is reaped; the result is the handle to signal
    /// it by.
    ProcessHandle saveWaitPidBackground(pid_t pid, std::function<void()> afterwards);

    // service_display.cpp
    std::pair<XAuthorityFile, std::vector<uint8_t>> createXauthFile(unsigned display, const std::string& user);
    pid_t runXvfbDisplay(unsigned display, unsigned char depth, unsigned short width, unsigned short height,
                         const std::string& user, const std::filesystem::path& authfile, const SocketNest* nest);
    std::filesystem::path displaySocket(unsigned display) const;
    bool startDisplay(Session& session, const StartRequest& request, std::vector<uint8_t>& cookie);
    bool waitDisplay(Session& session, pid_t pid, const std::shared_ptr<SocketNest>& nest);
    bool awaitSocket(const Session& session, const ProcessHandle& server, const std::filesystem::path& socket);
    bool publish(const Session& session, const SocketNest& nest, const std::filesystem::path& usual);
    [[nodiscard]] std::optional<gid_t> transportGroup() const;
    bool connectDisplay(Session& session, const std::vector<uint8_t>& cookie);
    void connectOnce(Session& session, const std::vector<uint8_t>& cookie, std::chrono::milliseconds limit);

    // service_session_start.cpp
    /// Answers the user's existing session for the same program, resized, or a new one; empty after logging the reason.
    /// The session's end is not noticed before the request has been answered.
    SessionPtr startSession(const std::string& user, const std::string& password, const unsigned char& depth,
                            const unsigned short& width, const unsigned short& height, const std::string& sessionPath,
                            const std::list<std::string>& sessionArgs);
    /// The session of that id, whose end is not noticed before the request has been answered; empty when there is none.
    SessionPtr findForRequest(uint32_t sid);
    SessionPtr findReusableLocked(const StartRequest& request);
    SessionPtr startNewLocked(const StartRequest& request, LoginAudit& audit);
    /// A slot that is empty, and the right to its display.
    struct Place {
        SessionPtr* slot = nullptr;
        std::shared_ptr<const uint32_t> lease;
    };
    Place takePlaceLocked();
    std::vector<size_t> emptySlotsLocked();
    Place tryPlaceLocked(size_t index, bool evenResting);
    Place restingPlaceLocked();
    Place waitPlaceLocked(std::vector<size_t>& ending);
    SessionPtr newRecord(const StartRequest& request, std::shared_ptr<const uint32_t> lease);
    bool checkAccount(Session& session, const std::string& password, LoginAudit& audit);
    bool checkHome(Session& session);
    void sessionMountProfile(Session* session);
    void logIdentity(const Session& session);
    bool startProgram(Session& session, const StartRequest& request);
    SessionPtr buildSession(const StartRequest& request, std::shared_ptr<const uint32_t> lease, LoginAudit& audit);
    void repeatGeometry(const SessionPtr& session, unsigned short width, unsigned short height);

    // service_requests.cpp
    StartRequest desktopRequest(const std::string& user, const std::string& password) const;
    SessionPtr startSession(const StartRequest& request);
    void complete(const SessionPtr& session, const std::string& password, const std::string& domain, bool ntlmv2);
    void allowConnection(const Session& session);
    int32_t requestDesktop(const std::string& user, const std::string& domain, const std::string& pass,
                           unsigned char depth, unsigned short width, unsigned short height);
    bool chooseProgram(const std::string& name, StartRequest& request) const;
    void applySecurity(Session& session, const SecurityFlags& flags);
    void markSeamless(Session& session, const std::string& name);

    // service_transport.cpp
    bool possibleTransport(uint32_t pid);
    bool mayName(const ProcessHandle& process, uid_t sessionUser);
    bool vardCreateNTLMhashFile(const SessionPtr& session, const std::string& password, bool ntlmv2);

    // service_notify.cpp
    /// vardSendNotify; `attempt`: the notice tells of an attempt to connect, which has a share of its own. Any thread.
    bool sendNotice(uint32_t session, const std::string& header, const std::string& message, uint8_t urgency,
                    bool attempt);
    void startNotice(Session& session, const std::list<std::string>& args, bool attempt);

    // service_desktop.cpp
    void waitSessionDBus(const Session* session);
    void waitSessionFixSetxkbmapEvdev(const Session* session);
    void waitSessionLoadX11Resources(const Session* session);
    bool waitSessionGeometryUpdate(const Session* session, unsigned short width, unsigned short height);
    void sessionCorrectMainWindowSize(const SessionPtr& session);
    std::string readSessionDBusAddress(const std::filesystem::path& directory, uint32_t display);

    // The tasks go last: they use everything else.
    UserChildren userChildren_;
    BackgroundTasks tasks_;
    AuditLog auditLog_;
    SessionTable table_;
    ChildWaits childWaits_;
    AdoptedChildren adopted_; // worker thread, and main thread once that has ended
    DisplayPool displays_;
    ProfileVolumes profiles_; // main thread only
    std::mutex noticesLock_; // guards the sessions' notices; taken before the child list's lock, never after
    mutable std::mutex configLock_; // guards the two pointers, not what they point to
    std::shared_ptr<const JsonConfig> config_;
    std::shared_ptr<const ProgramList> programs_;
    std::atomic<time_t> configTime_{0}; // of the file, as last observed; 0: not yet
    std::filesystem::path runtimeDir_;
    std::atomic<bool> busAlive_{true};
    std::chrono::steady_clock::time_point stopBegan_ = std::chrono::steady_clock::now();
    std::string caller_; // main thread only: the bus name of who made the call that is being answered
    RequestHold request_; // main thread only: of the request that is being answered
    bool proxyListenActive_ = false; // main thread only
};

} // namespace Vard
