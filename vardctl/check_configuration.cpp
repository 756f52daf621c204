// The configuration, and the files that it names.
#include "exceptions.h"
#include "hash_line.h"
#include "looks.h"
#include "program_run.h"
#include "settings_review.h"
#include "text.h"
#include "trust.h"

#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <optional>

namespace fs = std::filesystem;

namespace Vardctl {

namespace {

using namespace std::chrono_literals;
namespace Settings = Vard::Settings;

constexpr auto toolLimit = 5s; // as long as the service waits for one

/// A file of JSON; with a finding instead when it cannot be used.
std::optional<Json::Value> readWhole(const fs::path& file, const Findings& findings) {
    try {
        return Vard::readJson(file);
    } catch (const Vard::vard_error&) {
        findings.error(file.string() + " cannot be read", "it must be there, a regular file of at most 16 MiB");
    } catch (const Json::Exception& failure) {
        std::string where = failure.what();
        std::ranges::replace(where, '\n', ' ');
        findings.error(file.string() + " is broken: " + where,
                       "mend that place; until then the service keeps the settings it has, and does not start anew");
    }
    return std::nullopt;
}

void reportWriters(const fs::path& file, const Findings& findings) {
    if (const auto flaw = whoElseWrites(file); !flaw.empty()) {
        findings.error(flaw + ", on the way to " + file.string(),
                       "whoever can change it is as good as root: `chown root:root' and `chmod go-w' it");
    }
}

/// A program that users are to execute; false, with a finding, when they cannot.
bool reportProgram(const std::string& what, const fs::path& program, const Findings& findings) {
    struct stat info {};
    const bool there = program.is_absolute() && ::stat(program.c_str(), &info) == 0;
    if (!there || !S_ISREG(info.st_mode) || (info.st_mode & S_IXOTH) == 0) {
        findings.error(what + ": " + program.string() + (there ? " cannot be executed by users" : " is missing"),
                       there ? "`chmod a+rx' it, or name another program" : "install it, or name another program");
        return false;
    }
    if (const auto flaw = whoElseWrites(program); !flaw.empty()) {
        findings.error(what + ": " + flaw,
                       "whoever can change it is as good as all users: `chown root:root' and "
                       "`chmod go-w' it");
        return false;
    }
    findings.ok(what + ": " + program.string());
    return true;
}

} // namespace

Vard::JsonConfig Subject::settings() const {
    try {
        auto value = Vard::readJson(file);
        return value.isObject() ? Vard::JsonConfig(std::move(value)) : Vard::JsonConfig();
    } catch (const std::exception&) {
        return {};
    }
}

void lookAtConfiguration(const Subject& subject, const Findings& findings) {
    reportWriters(subject.file, findings);
    const auto value = readWhole(subject.file, findings);
    if (!value) {
        return;
    }
    if (!value->isObject()) {
        findings.error(subject.file.string() + " is no JSON object", "it begins with { and ends with }");
        return;
    }
    findings.ok(subject.file.string() + ": settings: " + std::to_string(value->size()));
    for (const auto& finding : Vard::reviewSettings(Vard::JsonConfig(*value))) {
        findings.warning(finding.text(), "correct that key: `man vard_service.json' has all of them and their values");
    }
}

void lookAtPrograms(const Subject& subject, const Findings& findings) {
    const auto settings = subject.settings();
    for (const auto& setting : {Settings::serverPath, Settings::sessionPath, Settings::sizeTool}) {
        reportProgram(setting.key, settings.setting(setting), findings);
    }
}

void lookAtPublished(const Subject& subject, const Findings& findings) {
    const fs::path file = subject.settings().setting(Settings::programFile);
    if (!fs::exists(file)) {
        findings.warning(file.string() + " is missing: the system's desktop entries alone are published",
                         "make it, if only with []");
        return;
    }
    reportWriters(file, findings);
    const auto list = readWhole(file, findings);
    if (!list) {
        return;
    }
    if (!list->isArray()) {
        findings.error(file.string() + " is no JSON array", "it begins with [ and ends with ]");
        return;
    }
    for (const auto& entry : *list) {
        const auto path = entry.isObject() && entry["path"].isString() ? entry["path"].asString() : "";
        if (path.empty() || !fs::exists(path)) {
            const auto name = entry.isObject() && entry["name"].isString() ? entry["name"].asString() : "?";
            findings.warning("published program " + name + (path.empty() ? " has no path" : " is missing: " + path),
                             "install it, or correct that entry of " + file.string());
        }
    }
    findings.ok(file.string() + ": programs: " + std::to_string(list->size()));
}

void lookAtHashTool(const Subject& subject, const Findings& findings) {
    const auto program = subject.settings().setting(Settings::hashTool);
    if (!reportProgram(Settings::hashTool.key, program, findings)) {
        return;
    }
    std::vector<std::string> command{program};
    std::ranges::copy(Vard::hashToolArguments("nobody", "", "an invented one", false), std::back_inserter(command));
    RunningProgram tool(command, strangerId());
    const bool ended = tool.endedBy(Vard::Deadline::in(toolLimit));
    const auto line = Vard::wholeFirstLine(tool.output());
    if (ended && tool.succeeded() && line.starts_with("nobody:")) {
        findings.ok("it makes a line");
    } else {
        findings.error(
            "it makes no line: " + (tool.succeeded() ? "unusable output" : tool.end()),
            "nobody can connect without the line: run it by hand, " + program + " -f sam -u nobody -p x -v 1");
    }
}

// Without a display it can only fail, but it must become a program for that.
void lookAtNotices(const Subject& subject, const Findings& findings) {
    const auto program = subject.settings().setting(Settings::noticeProgram);
    if (!reportProgram(Settings::noticeProgram.key, program, findings)) {
        return;
    }
    const auto quoted = Vard::Utils::stringQuoted("check");
    RunningProgram helper({program, "--header", quoted, "--message", quoted, "--level", "0"}, strangerId());
    helper.endedBy(Vard::Deadline::in(toolLimit));
    if (helper.failedToRun()) {
        findings.warning("it cannot be run: " + helper.end(),
                         "run it by hand: ldd " + program + " shows what is missing");
    }
}

} // namespace Vardctl
