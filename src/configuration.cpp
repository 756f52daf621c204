// The configuration and the program list: one snapshot of each, and their being read again.
#include "configuration.h"

#include "exceptions.h"
#include "logger.h"

#include <sys/stat.h>

#include <cerrno>
#include <utility>

namespace Vard {

namespace {

constexpr const char* watcher = "reloadConfigWatcher";

std::shared_ptr<const JsonConfig> readSettings(const std::filesystem::path& file, const char* func) {
    const Json::Value value = readJson(file);
    if (!value.isObject()) {
        Syslog::error("%s: json not object, file: %s", func, file.c_str());
        return nullptr;
    }
    return std::make_shared<const JsonConfig>(value);
}

void applyLevel(const JsonConfig& settings) { Syslog::setDebugLevel(settings.settingString("debug:level", "info")); }

} // namespace

ServiceConfig::ServiceConfig(std::filesystem::path file, SessionTable& table, DisplayPool& pool)
    : file_(std::move(file)), table_(table), pool_(pool), settings_(readSettings(file_, "DBusService")) {
    if (!settings_) {
        throw vard_error("DBusService");
    }
    applyLevel(*settings_);
    applyRange(DisplayRange::configured(*settings_), *settings_);
}

std::shared_ptr<const JsonConfig> ServiceConfig::settings() const {
    const std::scoped_lock lock(lock_);
    return settings_;
}

std::shared_ptr<const ProgramList> ServiceConfig::programs() const {
    const std::scoped_lock lock(lock_);
    return programs_;
}

void ServiceConfig::reloadPrograms() {
    auto list = std::make_shared<ProgramList>();
    list->reload(settings()->settingString("session:programs", "/etc/vard/programs.json"));
    const std::scoped_lock lock(lock_);
    programs_ = std::move(list);
}

// One start sees one state of the displays.
void ServiceConfig::applyRange(const DisplayRange& range, const JsonConfig& settings) {
    const bool isolate = settings.settingBoolean("xvfb:netns", true) && DisplayPool::canIsolate();
    {
        const auto sessions = table_.lock();
        pool_.configure(range, isolate);
    }
    table_.setRange(range);
}

bool ServiceConfig::changed() {
    struct stat info {};
    if (::stat(file_.c_str(), &info) != 0) {
        Utils::syslogErrno(watcher, "stat", errno);
        return false;
    }
    const time_t previous = fileTime_.exchange(info.st_mtime);
    return previous != 0 && previous != info.st_mtime;
}

void ServiceConfig::reload() {
    const auto fresh = readSettings(file_, watcher);
    if (!fresh) {
        return;
    }
    {
        const std::scoped_lock lock(lock_);
        settings_ = fresh;
    }
    applyLevel(*fresh);
    applyRange(DisplayRange::changed(*fresh).value_or(table_.range()), *fresh);
    reloadPrograms();
    Syslog::notice("%s: %s", watcher, "success");
}

void ServiceConfig::reloadIfChanged() {
    if (changed()) {
        reload();
    }
}

} // namespace Vard
