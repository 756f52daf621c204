// The configuration, and the files that it names.
#include "exceptions.h"
#include "hash_line.h"
#include "looks.h"
#include "program_run.h"
#include "settings_review.h"
#include "small_file.h"
#include "text.h"
#include "trust.h"

#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>

namespace fs = std::filesystem;

namespace Vardctl {

namespace {

using namespace std::chrono_literals;
namespace Settings = Vard::Settings;

constexpr auto toolLimit = 5s; // as long as the service waits for one
constexpr size_t largestFile = 16 << 20; // that the service takes

std::string inOneLine(std::string text) {
    std::ranges::replace(text, '\n', ' ');
    return text;
}

/// What the service's reader passes over without a word.
void reportSloppiness(const fs::path& file, const Findings& findings) {
    Json::CharReaderBuilder builder;
    builder["rejectDupKeys"] = true;
    builder["failIfExtra"] = true;
    const auto text = Vard::Utils::readFile(file, largestFile, Vard::LastLink::followed);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
        findings.warning(file.string() + " is taken, but not all of it: " + inOneLine(errors),
                         "mend that place: of two equal keys the last counts, and nothing behind the end");
    }
}

/// A file of JSON; with a finding instead when it cannot be used.
std::optional<Json::Value> readWhole(const fs::path& file, const Findings& findings) {
    try {
        auto value = Vard::readJson(file);
        reportSloppiness(file, findings);
        return value;
    } catch (const Vard::vard_error&) {
        findings.error(file.string() + " cannot be read", "it must be there, a regular file of at most 16 MiB");
    } catch (const Json::Exception& failure) {
        findings.error(file.string() + " is broken: " + inOneLine(failure.what()),
                       "mend that place; until then the service keeps the settings it has, and does not start anew");
    }
    return std::nullopt;
}

void reportWriters(const fs::path& file, const Findings& findings) {
    if (const auto flaw = whoElseWrites(file); !flaw.empty()) {
        findings.error(flaw + ", on the way to " + file.string(), ownedByRoot);
    }
}

/// Why users cannot, or should not, execute a program.
struct ProgramFlaw {
    std::string found;
    std::string remedy;
    bool grave = true;
};

bool strangerMay(const char* what, const fs::path& path) {
    return outputOf({"test", what, path}, strangerId()).has_value();
}

/// The interpreter that a script names in its first line; empty when it names none.
fs::path interpreterOf(const fs::path& program) {
    std::istringstream text(Vard::Utils::readSmallFile(program, true));
    std::string name;
    return text.get() == '#' && text.get() == '!' && text >> name ? fs::path(name) : fs::path();
}

ProgramFlaw flawOfMode(const fs::path& program, const struct stat& info) {
    const bool forGroup = info.st_uid == 0 && (info.st_mode & (S_IXGRP | S_IXOTH)) == S_IXGRP;
    if (forGroup && strangerMay("-x", program.parent_path())) {
        return {program.string() + " can be executed by one group alone", "`chmod a+rx' it, unless that is wanted",
                false};
    }
    return {program.string() + " cannot be executed by users",
            "`chmod a+rx' it and every directory on the way, or name another program"};
}

std::optional<ProgramFlaw> flawOf(const fs::path& program) {
    struct stat info {};
    if (!program.is_absolute() || ::stat(program.c_str(), &info) != 0) {
        return ProgramFlaw{program.string() + " is missing", "install it, or name another program"};
    }
    if (!S_ISREG(info.st_mode)) {
        return ProgramFlaw{program.string() + " is no program", "name another"};
    }
    if (!strangerMay("-x", program)) {
        return flawOfMode(program, info);
    }
    const auto interpreter = interpreterOf(program);
    if (!interpreter.empty() && !strangerMay("-x", interpreter)) {
        return ProgramFlaw{program.string() + " cannot be executed without " + interpreter.string(),
                           "install that, or correct the script's first line"};
    }
    if (const auto flaw = whoElseWrites(program); !flaw.empty()) {
        return ProgramFlaw{flaw, ownedForUsers};
    }
    return std::nullopt;
}

/// A program that users are to execute; false, with a finding, when something is wrong with it.
bool reportProgram(const std::string& what, const fs::path& program, const Findings& findings) {
    const auto flaw = flawOf(program);
    if (!flaw) {
        findings.ok(what + ": " + program.string());
    } else if (flaw->grave) {
        findings.error(what + ": " + flaw->found, flaw->remedy);
    } else {
        findings.warning(what + ": " + flaw->found, flaw->remedy);
    }
    return !flaw;
}

// Without a display it can only fail, but it must become a program for that.
void tryProgram(const std::vector<std::string>& command, const Findings& findings) {
    RunningProgram program(command, strangerId());
    program.endedBy(Vard::Deadline::in(toolLimit));
    if (program.failedToRun()) {
        findings.warning(command[0] + " cannot be run: " + program.end(),
                         "run it by hand: ldd " + command[0] + " shows what is missing");
    }
}

void reportPublished(const Json::Value& entry, const fs::path& file, const Findings& findings) {
    const auto text = [&](const char* key) {
        return entry.isObject() && entry[key].isString() ? entry[key].asString() : "";
    };
    const auto name = text("name").empty() ? "?" : text("name");
    const auto flaw = text("path").empty() ? ProgramFlaw{"it has no path", ""} : flawOf(text("path"));
    if (flaw) {
        findings.warning(
            "published program " + name + ": " + flaw->found,
            flaw->remedy + (flaw->remedy.empty() ? "" : ", or ") + "correct that entry of " + file.string());
    }
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
    if (const auto flaw = whoElseWrites(subject.file); subject.proposed && !flaw.empty()) {
        findings.warning(flaw + ": not yet in its place", "sudo install -o root -g root -m 644 " +
                                                              subject.file.string() +
                                                              " /etc/vard/vard_service.json puts it there");
    } else {
        reportWriters(subject.file, findings);
    }
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
        const auto* const remedy = "correct that key: `man vard_service.json' has all of them and their values";
        finding.grave ? findings.error(finding.text(), remedy) : findings.warning(finding.text(), remedy);
    }
}

void lookAtPrograms(const Subject& subject, const Findings& findings) {
    const auto settings = subject.settings();
    for (const auto& setting : {Settings::serverPath, Settings::sessionPath}) {
        reportProgram(setting.key, settings.setting(setting), findings);
    }
    const auto sizeTool = settings.setting(Settings::sizeTool);
    if (reportProgram(Settings::sizeTool.key, sizeTool, findings)) {
        tryProgram({sizeTool, "--version"}, findings);
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
        reportPublished(entry, file, findings);
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

void lookAtNotices(const Subject& subject, const Findings& findings) {
    const auto program = subject.settings().setting(Settings::noticeProgram);
    if (reportProgram(Settings::noticeProgram.key, program, findings)) {
        const auto quoted = Vard::Utils::stringQuoted("check");
        tryProgram({program, "--header", quoted, "--message", quoted, "--level", "0"}, findings);
    }
}

} // namespace Vardctl
