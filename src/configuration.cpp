// The configuration and the program list: one snapshot of each, and their being read again.
#include "configuration.h"

#include "exceptions.h"
#include "logger.h"
#include "settings_review.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Vard {

namespace {

constexpr const char* watcher = "reloadConfigWatcher";
constexpr size_t mostFindings = 30; // in the journal; a wrong file may have any number

std::shared_ptr<const JsonConfig> readSettings(const std::filesystem::path& file, const char* func) {
    const Json::Value value = readJson(file);
    if (!value.isObject()) {
        Syslog::error("%s: json not object, file: %s", func, file.c_str());
        return nullptr;
    }
    return std::make_shared<const JsonConfig>(value);
}

// Each is taken as it stands or replaced by its default, which the administrator is to know.
void reportFindings(const JsonConfig& settings) {
    const auto findings = reviewSettings(settings);
    for (size_t index = 0; index < std::min(findings.size(), mostFindings); ++index) {
        Syslog::warning("%s: %s", "reviewSettings", findings[index].text().c_str());
    }
    if (findings.size() > mostFindings) {
        Syslog::warning("%s: more findings: %zu", "reviewSettings", findings.size() - mostFindings);
    }
}

void applyLevel(const JsonConfig& settings) { Syslog::setDebugLevel(settings.setting(Settings::debugLevel)); }

} // namespace

Configuration::Configuration(std::filesystem::path file, SessionTable& table, DisplayPool& pool)
    : file_(std::move(file)), table_(table), pool_(pool) {
    const auto settings = readSettings(file_, "DBusService");
    if (!settings) {
        throw vard_error("DBusService");
    }
    applyLevel(*settings);
    reportFindings(*settings);
    apply(settings, DisplayRange::configured(*settings));
}

std::shared_ptr<const JsonConfig> Configuration::settings() const {
    const std::scoped_lock lock(lock_);
    return settings_;
}

std::shared_ptr<const ProgramList> Configuration::programs() const {
    const std::scoped_lock lock(lock_);
    return programs_;
}

void Configuration::reloadPrograms() {
    auto list = std::make_shared<ProgramList>();
    list->reload(settings()->setting(Settings::programFile));
    const std::scoped_lock lock(lock_);
    programs_ = std::move(list);
}

// One start, which holds the table, sees one state of the settings and the displays.
void Configuration::apply(std::shared_ptr<const JsonConfig> settings, const DisplayRange& range) {
    const bool isolate = settings->setting(Settings::serverIsolated) && DisplayPool::canIsolate();
    {
        const auto sessions = table_.lock();
        pool_.configure(range, isolate);
        const std::scoped_lock lock(lock_);
        settings_ = std::move(settings);
    }
    table_.setRange(range);
}

bool Configuration::changed() {
    struct stat info {};
    if (::stat(file_.c_str(), &info) != 0) {
        Utils::syslogErrno(watcher, "stat", errno);
        return false;
    }
    const time_t previous = std::exchange(fileTime_, info.st_mtime);
    return previous != 0 && previous != info.st_mtime;
}

void Configuration::reload() {
    const auto fresh = readSettings(file_, watcher);
    if (!fresh) {
        return;
    }
    applyLevel(*fresh);
    reportFindings(*fresh);
    apply(fresh, DisplayRange::changed(*fresh).value_or(table_.range()));
    reloadPrograms();
    Syslog::notice("%s: %s", watcher, "success");
}

void Configuration::reloadIfChanged() {
    if (changed()) {
        reload();
    }
}

} // namespace Vard
