// The service object: the face of the service on the bus, and the threads' entry points.
#pragma once

#include "audit_log.h"
#include "background_tasks.h"
#include "bus_signals.h"
#include "child_waits.h"
#include "configuration.h"
#include "display_pool.h"
#include "logger.h"
#include "own_children.h"
#include "profile_volume.h"
#include "service_runtime_directory.h"
#include "session_notices.h"
#include "session_request.h"
#include "session_start.h"
#include "session_table.h"
#include "session_users.h"
#include "user_children.h"

#include <dbus-c++/dbus.h>
#include <vard_adaptor.h>

#include <chrono>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vard {

/// The bus object "/ru/korvex/vard". Each method logs, finds or checks, makes one call on the room that does the work,
/// and answers. Methods run on the main thread, one at a time; the watchers on the worker thread; everything else in
/// counted background tasks. Lock order: the session table's, then the child list's; neither is held while waiting for
/// the bus or the audit socket. What a method throws becomes the caller's answer (bus_boundary.h).
class DBusService final : public Syslog,
                          public ru::korvex::vard_adaptor,
                          public DBus::IntrospectableAdaptor,
                          public DBus::ObjectAdaptor {
    using Text = const std::string&;
    using Number = const uint32_t&;
    using Pixels = const uint16_t&;

public:
    /// Runs the service with the configuration file `path` until it is asked to stop. Main thread. Throws DBus::Error
    /// without a bus, std::runtime_error when another instance owns the name, and what the constructor throws.
    static void start(Text path);
    /// Throws vard_error or jsoncpp's exception, after an error line, when configuration or directory cannot be used.
    DBusService(DBus::Connection& connection, Text path);
    ~DBusService() override; ///< removes the pid file and waits, in bounded time, for the tasks
    DBusService(const DBusService&) = delete;
    DBusService& operator=(const DBusService&) = delete;

    // service_status.cpp

    void busServiceShutdown() override; ///< stops the service; the answer goes out first
    void busSetDebugLevel(Text value) override; ///< an unknown word is logged and changes nothing
    bool vardStatus() override; ///< always true
    std::string vardTest() override; ///< the version
    /// True when the account may be used and the password is right; the domain is only logged.
    bool vardTestConnect(Text user, Text domain, Text pass) override;
    /// The same against a PAM service by name. Throws pam_error when PAM cannot be asked.
    bool vardCheckAuthUser(Text user, Text pass, Text service) override;
    double vardLoadAverage() override; ///< of five minutes, percent of all processors; 0 when it cannot be read
    uint32_t zabbixSessionsTotal() override; ///< sessions whose program runs
    uint32_t zabbixSessionsOnline() override; ///< sessions that have a transport

    // service_sessions.cpp

    /// Display, user, start in local time, age in seconds, uid and gid of every session.
    std::vector<DBus::Struct<uint32_t, std::string, std::string, uint32_t, uint32_t, uint32_t>> busSessionsInfo()
        override;
    std::vector<DBus::Struct<std::string, uint32_t>> vardSessions() override; ///< user and id of every session
    /// The session's JSON object; "{}" for an unknown one. Waits for its X server at most two seconds.
    std::string vardSessionInfoJson(Number session) override;
    std::string vardUserInfoJson(Text user) override; ///< an array of the objects of all the user's sessions
    /// An array of the processes of the session's user; empty, after a warning, for an unknown session.
    std::string vardSessionProcess(Number session) override;
    bool busSessionShutdown(Text username) override; ///< ends the user's first session; false when there is none
    bool vardSessionShutdown(Number session) override; ///< ends the session; false for an unknown one
    bool vardDisconnect(Number session) override; ///< tells the transport to end; false when there is none
    void vardSessionDurationLimit(Number session, Number countsec) override; ///< its age in seconds; 0: no limit
    void vardSessionInactivityLimit(Number session, Number countsec) override; ///< seconds, for the transport's side
    /// Shows a notice in the session; false for an unknown one.
    bool vardSendNotify(Number session, Text header, Text message, const uint8_t& urgency) override;
    /// Resizes the session's screen; returns when that is done.
    void vardSessionGeometry(Number session, Pixels width, Pixels height) override;
    /// The address of the user's session bus as the user's files tell it; empty when none. At most three seconds.
    std::string vardSessionDBusAddress(Text username) override;

    // service_requests.cpp

    /// Starts or reuses the user's desktop: its id, or -1 with the reason in the journal. The password is not checked.
    int32_t busSessionRequest(Text user, Text pass, const uint8_t& depth, Pixels width, Pixels height) override;
    /// The same with a domain.
    int32_t busSessionDomainRequest(Text user, Text domain, Text pass, const uint8_t& depth, Pixels width,
                                    Pixels height) override;
    /// The same from a JSON object. Throws jsoncpp's exception or vard_error when it is none.
    int32_t vardSessionRequest(Text params) override;
    /// Checks account and password, then starts the desktop with 1280x1024 in 24 bits.
    bool vardLogin(Text user, Text domain, Text pass) override;
    /// A session that runs one published program.
    int32_t busProgramRequest(Text user, Text domain, Text pass, Pixels width, Pixels height, Text prog) override;
    std::vector<std::string> vardProgramList() override; ///< the names of the published programs, read anew

    // service_transport.cpp

    void proxyListenStarted(Number session, const bool& status) override; ///< the proxy has tried to listen
    void proxyClientConnected(Number session, Text ipaddr) override; ///< a client's address is shown to the user
    /// The process serves the client from now on; the one before is told to end. Refused with an error line when it
    /// cannot be a transport.
    void proxySessionConnected(Number session, Number pid, Text ipaddr) override;
    void proxyListenTimeout(Number timeout) override; ///< tells the proxy a time-out in seconds
    void vardRdpSecurityPolicy(Number session, const bool& nla, const bool& tls,
                               const bool& rdp) override; ///< stores it
    /// Asks the proxy to let a client in; false for an unknown session and while a transport runs.
    bool vardConnectRdpTransport(Number session, Number timeout) override;
    bool vardCheckProxyListen() override; ///< true since the proxy last reported to listen, until a client came

private:
    using SessionPtr = std::shared_ptr<Session>;

    bool handle_message(const DBus::Message& message) override;
    void run();
    bool busAlive();
    /// The session of that id, whose end is not noticed before the request has been answered; empty when there is none.
    SessionPtr findForRequest(uint32_t sid);
    SessionPtr startSession(const StartRequest& request); ///< SessionStart::start, held as by findForRequest
    StartRequest desktopRequest(Text user, Text password, const DisplayFormat& format) const;
    int32_t requestDesktop(const StartRequest& request, Text domain);
    int32_t admit(const SessionPtr& session, const Admission& admission);
    void complete(const SessionPtr& session, const Admission& admission);

    // Required under these names, each handed on to its room; the worker, and what it calls.
    SessionPtr startSession(Text user, Text password, const unsigned char& depth, const unsigned short& width,
                            const unsigned short& height, Text sessionPath, const std::list<std::string>& sessionArgs);
    std::pair<XAuthorityFile, std::vector<uint8_t>> createXauthFile(unsigned display, Text user);
    pid_t runXvfbDisplay(unsigned display, unsigned char depth, unsigned short width, unsigned short height, Text user,
                         const std::filesystem::path& authfile);
    ProcessHandle saveWaitPidBackground(pid_t pid);
    void sessionMountProfile(Session* session);
    void waitSessionDBus(const Session* session);
    bool waitSessionGeometryUpdate(const Session* session, unsigned short width, unsigned short height);
    void waitSessionFixSetxkbmapEvdev(const Session* session);
    void waitSessionLoadX11Resources(const Session* session);
    void sessionCorrectMainWindowSize(const SessionPtr& session);
    std::string readSessionDBusAddress(Text directory, uint32_t display);
    bool vardCreateNTLMhashFile(const SessionPtr& session, Text password, bool ntlmv2);
    void sessionsClear();
    void worker();
    void auditUserMessage(const unsigned& display, const char* address, int type, std::string_view operation,
                          std::string_view user, bool result);
    void reloadConfigWatcher();
    void stoppedChildsWatcher();
    void stoppedTransportWatcher();
    void durationLimitSessionsWatcher();
    void seamlessTimeoutWatcher();
    void sessionUsersWatcher();

    // The tasks go last: they use everything else.
    UserChildren users_;
    BackgroundTasks tasks_;
    AuditLog audit_;
    BusSignals signals_{*this};
    SessionTable table_;
    ChildWaits children_;
    AdoptedChildren adopted_; // worker thread, and main thread once that has ended
    DisplayPool displays_;
    ProfileVolumes profiles_; // main thread
    Configuration config_;
    ServiceRuntimeDirectory directory_;
    SessionUsers sessionUsers_; // worker thread
    SessionStart starter_;
    SessionNotices notices_;
    std::chrono::steady_clock::time_point stopBegan_ = std::chrono::steady_clock::now();
    const DBus::CallMessage* call_ = nullptr; // main thread: the one that is being answered
    RequestHold request_; // main thread: of the request that is being answered
    bool proxyListenActive_ = false; // main thread
};

} // namespace Vard
