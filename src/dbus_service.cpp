// Construction, the start of the service, the configuration and its reload.
#include "dbus_service.h"

#include "exceptions.h"
#include "parsec.h"
#include "utils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;

namespace Vard {

namespace {

constexpr const char* busName = "ru.korvex.vard";
constexpr const char* objectPath = "/ru/korvex/vard";
// Longer than a child that will not end is given, and than an unmounting takes.
constexpr std::chrono::seconds drainLimit{15}; // with the ends of the children inside the unit's stop time-out

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
    useSmallThreadStacks();
    Parsec::load();
    DBus::_init_threading();
    DBus::default_dispatcher = &serviceDispatcher;
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
    {
        const WorkerThread thread([this, path] { worker(path); });
        serviceDispatcher.enter();
    }
    sessionsClear();
    notice("%s: shutdown complete", "start");
}

DBusService::DBusService(DBus::Connection& connection, const std::string& path)
    : Syslog("vard_service"), DBus::ObjectAdaptor(connection, objectPath) {
    config_ = readConfig(path, "DBusService");
    setDebugLevel(config_->settingString("debug:level", "info"));
    table_.setRange(displayRange(*config_, "DBusService").value_or(DisplayRange{}));
    runtimeDir_ = config_->settingString("runtime:dir", "/run/vard");
    createRuntimeDirectory();
    writePidFile();
    auditLog_.open();
    reloadPrograms(*config_);
}

DBusService::~DBusService() {
    std::error_code ignored;
    fs::remove(pidFile(), ignored);
    tasks_.stop();
    if (!tasks_.drain(drainLimit)) {
        error("%s: background tasks do not end", "DBusService");
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

void DBusService::createRuntimeDirectory() {
    std::error_code failed;
    if (!fs::exists(runtimeDir_, failed) && !fs::create_directory(runtimeDir_, failed)) {
        error("%s: create runtime directory failed, path: %s", "DBusService", runtimeDir_.c_str());
        throw vard_error("runtime directory failed");
    }
    fs::permissions(runtimeDir_, static_cast<fs::perms>(0755), fs::perm_options::replace, failed);
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
    if (const auto range = displayRange(*fresh, "reloadConfigWatcher")) {
        table_.setRange(*range);
    }
    reloadPrograms(*fresh);
    notice("%s: %s", "reloadConfigWatcher", "success");
}

} // namespace Vard
