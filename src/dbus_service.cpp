// Construction, the start of the service, the configuration and its reload.
#include "dbus_service.h"

#include "exceptions.h"
#include "parsec.h"
#include "utils.h"
#include "x_server.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;

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

std::shared_ptr<const JsonConfig> readConfig(const std::string& path, const char* func) {
    const Json::Value value = readJson(path);
    if (!value.isObject()) {
        Syslog::error("%s: json not object, file: %s", func, path.c_str());
        throw vard_error(func);
    }
    return std::make_shared<const JsonConfig>(value);
}

std::optional<DisplayRange> displayRange(const JsonConfig& config, const char* func) {
    return DisplayRange::of(config.settingInteger("display:min", 33), config.settingInteger("display:max", 55), func);
}

// The same while the service runs: a value that is no number leaves the range in force, which its default would move.
std::optional<DisplayRange> changedRange(const JsonConfig& config, const char* func) {
    const auto range = displayRange(config, func); // says what is wrong with it
    try {
        config.getInteger("display:min");
        config.getInteger("display:max");
        return range;
    } catch (const std::exception&) {
        return std::nullopt;
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

void DBusService::start(const std::string& path) {
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
    service.run(path);
}

void DBusService::run(const std::string& path) {
    notice("%s: started, version %s, pid: %d, config: `%s'", "start", productVersion("SERVICE").c_str(), ::getpid(),
           path.c_str());
    serviceRunning = true;
    if (stopRequested) {
        serviceRunning = false;
    }
    std::exception_ptr failure; // the sessions are ended in any case
    try {
        const WorkerThread thread([this, path] { worker(path); });
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

DBusService::DBusService(DBus::Connection& connection, const std::string& path)
    : Syslog("vard_service"), DBus::ObjectAdaptor(connection, objectPath) {
    config_ = readConfig(path, "DBusService");
    setDebugLevel(config_->settingString("debug:level", "info"));
    applyRange(displayRange(*config_, "DBusService").value_or(DisplayRange{}), *config_);
    runtimeDir_ = config_->settingString("runtime:dir", "/run/vard");
    createRuntimeDirectory();
    removeStale();
    writePidFile();
    auditLog_.open();
    reloadPrograms(*config_);
}

DBusService::~DBusService() {
    std::error_code ignored;
    fs::remove(pidFile(), ignored);
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

std::shared_ptr<const JsonConfig> DBusService::config() const {
    const std::scoped_lock lock(configLock_);
    return config_;
}

std::shared_ptr<const ProgramList> DBusService::programs() const {
    const std::scoped_lock lock(configLock_);
    return programs_;
}

void DBusService::reloadPrograms(const JsonConfig& config) {
    auto list = std::make_shared<ProgramList>();
    list->reload(config.settingString("session:programs", "/etc/vard/programs.json"));
    const std::scoped_lock lock(configLock_);
    programs_ = std::move(list);
}

// One start sees one state of the displays.
void DBusService::applyRange(const DisplayRange& range, const JsonConfig& config) {
    const bool isolate = config.settingBoolean("xvfb:netns", true) && DisplayPool::canIsolate();
    {
        const std::scoped_lock lock(table_.mutex());
        displays_.configure(range, isolate);
    }
    table_.setRange(range);
}

void DBusService::createRuntimeDirectory() {
    std::error_code failed;
    if (!fs::exists(runtimeDir_, failed) && !fs::create_directory(runtimeDir_, failed)) {
        error("%s: create runtime directory failed, path: %s", "DBusService", runtimeDir_.c_str());
        throw vard_error("runtime directory failed");
    }
    fs::permissions(runtimeDir_, static_cast<fs::perms>(0755), fs::perm_options::replace, failed);
}

// An instance that was killed left cookies, nests, sockets and locks of servers that have gone.
void DBusService::removeStale() const {
    std::error_code failed;
    for (fs::directory_iterator it(runtimeDir_, failed), end; !failed && it != end; it.increment(failed)) {
        if (it->path().filename().native().starts_with("xauth_")) {
            std::error_code ignored;
            fs::remove(it->path(), ignored);
        }
    }
    SocketNest::removeStale(displaySocket(0));
    const auto [first, count] = table_.range();
    for (size_t slot = 0; slot < count; ++slot) {
        const auto display = static_cast<unsigned>(static_cast<size_t>(first) + slot);
        clearDeadDisplay(display, displaySocket(display));
    }
}

fs::path DBusService::pidFile() const { return runtimeDir_ / "vard_service.pid"; }

void DBusService::writePidFile() const {
    std::ofstream file(pidFile(), std::ios::trunc);
    if (file) {
        file << ::getpid();
    }
}

void DBusService::reloadConfigWatcher(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        Utils::syslogErrno("reloadConfigWatcher", "stat", errno);
        return;
    }
    const time_t previous = configTime_.exchange(info.st_mtime);
    if (previous != 0 && previous != info.st_mtime) {
        reloadConfig(path);
    }
}

void DBusService::reloadConfig(const std::string& path) {
    const Json::Value value = readJson(path);
    if (!value.isObject()) {
        error("%s: json not object, file: %s", "reloadConfigWatcher", path.c_str());
        return;
    }
    const auto fresh = std::make_shared<const JsonConfig>(value);
    {
        // A session start holds the table's lock: it sees one configuration from top to bottom.
        const std::scoped_lock lock(table_.mutex(), configLock_);
        config_ = fresh;
    }
    setDebugLevel(fresh->settingString("debug:level", "info"));
    applyRange(changedRange(*fresh, "reloadConfigWatcher").value_or(table_.range()), *fresh);
    reloadPrograms(*fresh);
    notice("%s: %s", "reloadConfigWatcher", "success");
}

} // namespace Vard
