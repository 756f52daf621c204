// The programs that clients may start as a session.
#include "program_list.h"

#include "desktop_file.h"
#include "json_config.h"
#include "logger.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace Vard {

namespace {

bool pathExists(const fs::path& path) {
    std::error_code ignored;
    return fs::exists(path, ignored);
}

// The command without its arguments and field codes, as a path where there is one.
fs::path executable(const std::string& exec) {
    const std::string command = exec.substr(0, exec.find(' '));
    const fs::path inBin = "/usr/bin/" + command;
    return pathExists(command) || !pathExists(inBin) ? fs::path(command) : inBin;
}

Program fromEntry(const DesktopFile& entry) {
    Program program{entry.nameRu.empty() ? entry.name : entry.nameRu, executable(entry.exec), {}};
    if (entry.terminal) {
        program.args = {"-e", program.path.string()};
        program.path = "/usr/bin/xterm";
    }
    return program;
}

bool missingBinary(const Program& program) {
    if (pathExists(program.path)) {
        return false;
    }
    Syslog::warning("%s: binary not found: %s for name: %s", "ProgramListReload", program.path.c_str(),
                    program.name.c_str());
    return true;
}

} // namespace

const Json::Value& operator>>(const Json::Value& value, std::string& text) {
    text = value.asString();
    return value;
}

const Json::Value& operator>>(const Json::Value& value, Program& program) {
    program.name = value.get("name", "").asString();
    program.path = value.get("path", "").asString();
    program.args = valueToList<std::string>(value["args"]);
    return value;
}

void ProgramList::addDesktopEntries(const fs::path& dir) {
    std::error_code failed;
    for (fs::directory_iterator it(dir, failed), end; !failed && it != end; it.increment(failed)) {
        std::error_code ignored;
        if (it->path().extension() != ".desktop" || !it->is_regular_file(ignored)) {
            continue;
        }
        const auto entry = DesktopFile::parse(it->path());
        if (entry.application && !entry.hidden) {
            programs_.push_back(fromEntry(entry));
        }
    }
}

bool ProgramList::reload(const fs::path& path, const fs::path& desktopDir) {
    programs_.clear();
    addDesktopEntries(desktopDir);
    if (!pathExists(path)) {
        Syslog::error("%s: path not found: %s", "reload", path.c_str());
        return false;
    }
    try {
        const Json::Value json = readJson(path);
        if (!json.isArray()) {
            Syslog::error("%s: not json array: %s", "reload", path.c_str());
            return false;
        }
        auto own = valueToList<Program>(json);
        own.remove_if(missingBinary);
        programs_.splice(programs_.end(), own);
        return true;
    } catch (const std::exception& err) {
        Syslog::error("%s: exception: %s", "reload", err.what());
        return false;
    }
}

const Program* ProgramList::find(const std::string& name) const {
    const auto found = std::ranges::find(programs_, name, &Program::name);
    return found == programs_.end() ? nullptr : &*found;
}

std::vector<std::string> ProgramList::getNames() const {
    std::vector<std::string> names;
    std::ranges::transform(programs_, std::back_inserter(names), &Program::name);
    return names;
}

} // namespace Vard
