// The start of the service and its end; calls on their way to the methods.
#include "dbus_service.h"

#include "build_version.h"
#include "bus_boundary.h"
#include "dispatcher.h"
#include "parsec.h"
#include "stop_request.h"
#include "version.h"

#include <dbus/dbus.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <functional>
#include <stdexcept>
#include <thread>

namespace Vard {

namespace {

constexpr const char* busName = "ru.korvex.vard";
constexpr const char* objectPath = "/ru/korvex/vard";
// From the end of the loop on: inside the unit's stop time-out.
constexpr std::chrono::seconds stopLimit{27};
constexpr std::chrono::seconds leastDrain{1};

// The bus queues a second owner of a name silently; without this look it would overwrite the first one's pid file.
void acquireName(DBus::Connection& connection) {
    connection.request_name(busName, 0);
    DBus::CallMessage call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetNameOwner");
    DBus::MessageIter out = call.writer();
    out << std::string(busName);
    const DBus::Message reply = connection.send_blocking(call);
    DBus::MessageIter in = reply.reader();
    std::string owner;
    in >> owner;
    if (owner != connection.unique_name()) {
        throw std::runtime_error(std::string(busName) + " is owned by another instance, " + owner);
    }
}

// Gives the bus its name back, however the service is left and whatever still holds a copy of the connection's socket.
class BusFarewell {
public:
    BusFarewell() = default;
    BusFarewell(const BusFarewell&) = delete;
    BusFarewell& operator=(const BusFarewell&) = delete;
    ~BusFarewell() { serviceDispatcher.hangUp(); }
};

// Joins the worker however the loop was left.
class WorkerThread {
public:
    explicit WorkerThread(std::function<void()> body) : thread_(std::move(body)) {}
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;
    ~WorkerThread() {
        serviceRunning = false;
        thread_.join();
    }

private:
    std::thread thread_;
};

} // namespace

void DBusService::start(Text path) {
    ::umask(027);
    ::mallopt(M_ARENA_MAX, 1); // short-lived threads would each leave a part of an arena of their own in use
    AdoptedChildren::adopt();
    Parsec::load();
    DBus::_init_threading();
    DBus::default_dispatcher = &serviceDispatcher;
    const BusFarewell farewell; // after the library has closed its own end
    DBus::Connection connection = DBus::Connection::SystemBus();
    connection.exit_on_disconnect(false);
    acquireName(connection);
    DBusService service(connection, path);
    notice("%s: started, version %s, pid: %d, config: `%s'", "start", productVersion("SERVICE").c_str(), ::getpid(),
           path.c_str());
    notice("%s: build: %s", "start", buildVersion);
    service.run();
}

void DBusService::run() {
    serviceRunning = true;
    if (stopRequested) {
        serviceRunning = false;
    }
    std::exception_ptr failure; // the sessions are ended in any case
    try {
        const WorkerThread thread([this] { worker(); });
        serviceDispatcher.enter();
    } catch (...) {
        failure = std::current_exception();
    }
    sessionsClear();
    if (failure) {
        std::rethrow_exception(failure);
    }
    notice("%s: shutdown complete", "start");
}

DBusService::DBusService(DBus::Connection& connection, Text path)
    : Syslog("vard_service"),
      DBus::ObjectAdaptor(connection, objectPath),
      config_(path, table_, displays_),
      directory_(*config_.settings(), table_.range()),
      sessionUsers_(directory_.path()),
      starter_({config_, table_, {displays_, users_, children_, tasks_}, profiles_, audit_, directory_.path()}),
      notices_(config_, children_) {
    audit_.open();
    config_.reloadPrograms();
}

DBusService::~DBusService() {
    directory_.removePidFile();
    tasks_.stop();
    tasks_.abandon(); // what is still waited for now is beyond reach
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(stopBegan_ + stopLimit -
                                                                            std::chrono::steady_clock::now());
    if (!tasks_.drain(std::max<std::chrono::milliseconds>(left, leastDrain))) {
        error("%s: background tasks do not end", "DBusService");
        serviceDispatcher.hangUp();
        std::_Exit(EXIT_FAILURE); // They use this object; there is nothing left to save.
    }
}

// Nothing is torn down here: the processes are told to end, and what the records hold goes with them.
void DBusService::sessionsClear() {
    stopBegan_ = std::chrono::steady_clock::now();
    tasks_.stop();
    request_.reset();
    table_.clear();
    children_.endAll("sessionsClear");
    adopted_.endAll("sessionsClear");
}

bool DBusService::handle_message(const DBus::Message& message) {
    if (message.type() != DBUS_MESSAGE_TYPE_METHOD_CALL) {
        return false;
    }
    // The library hands the call over as its base, as its own objects receive it.
    const auto& call = static_cast<const DBus::CallMessage&>(message); // NOLINT(*-static-cast-downcast)
    call_ = &call;
    answerCall(conn(), call, [this](const std::string& interface) { return find_interface(interface); });
    call_ = nullptr;
    request_.reset(); // answered: the end of its session may be told now
    return true;
}

} // namespace Vard
