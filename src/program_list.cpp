// The programs that clients may start as a session.
#include "program_list.h"

#include "desktop_file.h"
#include "json_config.h"
#include "logger.h"
#include "text.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace fs = std::filesystem;

namespace Vard {

namespace {

// The names leave in one bus message, whose size is limited, and a byte may become three when they are made valid text.
constexpr size_t largestNames = 4 << 20;
constexpr size_t nameOverhead = 8;

bool pathExists(const fs::path& path) {
    std::error_code ignored;
    return fs::exists(path, ignored);
}

// The command without its arguments and field codes, as a path where there is one.
fs::path executable(const std::string& exec) {
    const std::string command = exec.substr(0, exec.find_first_of(" \t"));
    const fs::path inBin = fs::path("/usr/bin/") / command;
    return pathExists(command) || !pathExists(inBin) ? fs::path(command) : inBin;
}

Program fromEntry(const DesktopFile& entry) {
    Program program{Utils::toValidUtf8(entry.nameRu.empty() ? entry.name : entry.nameRu), executable(entry.exec), {}};
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

// One that cannot be understood costs itself only.
void addElement(std::list<Program>& programs, const Json::Value& element, const fs::path& path, unsigned place) {
    try {
        Program program;
        element >> program;
        programs.push_back(std::move(program));
    } catch (const std::exception& err) {
        Syslog::error("%s: wrong element, path: %s, place: %u, exception: %s", "reload", path.c_str(), place,
                      err.what());
    }
}

// The administrator's own programs; none, after an error line, when the file cannot be understood.
std::optional<std::list<Program>> readPrograms(const fs::path& path) {
    if (!pathExists(path)) {
        Syslog::error("%s: path not found: %s", "reload", path.c_str());
        return std::nullopt;
    }
    const Json::Value json = readJson(path);
    if (!json.isArray()) {
        Syslog::error("%s: not json array: %s", "reload", path.c_str());
        return std::nullopt;
    }
    std::list<Program> programs;
    for (Json::ArrayIndex index = 0; index < json.size(); ++index) {
        addElement(programs, json[index], path, index + 1);
    }
    programs.remove_if(missingBinary);
    return programs;
}

void dropExcess(std::list<Program>& programs) {
    size_t total = 0;
    const auto excess = std::ranges::find_if(programs, [&](const Program& program) {
        total += program.name.size() + nameOverhead;
        return total > largestNames;
    });
    if (excess != programs.end()) {
        Syslog::warning("%s: names too long together, programs dropped: %zu", "reload",
                        static_cast<size_t>(std::distance(excess, programs.end())));
        programs.erase(excess, programs.end());
    }
}

} // namespace

const Json::Value& operator>>(const Json::Value& value, std::string& text) {
    text = value.asString();
    return value;
}

const Json::Value& operator>>(const Json::Value& value, Program& program) {
    program.name = Utils::toValidUtf8(value.get("name", "").asString());
    program.path = value.get("path", "").asString();
    if (!value["args"].isNull() && !value["args"].isArray()) {
        throw std::invalid_argument("args: not an array");
    }
    program.args = valueToList<std::string>(value["args"]);
    return value;
}

void ProgramList::addDesktopEntries(const fs::path& dir) {
    std::error_code failed;
    for (fs::directory_iterator it(dir, failed), end; !failed && it != end; it.increment(failed)) {
        if (it->path().extension() != ".desktop") {
            continue;
        }
        const auto entry = DesktopFile::parse(it->path()); // no application, unless it is a regular file
        if (entry.application && !entry.hidden) {
            programs_.push_back(fromEntry(entry));
        }
    }
}

bool ProgramList::reload(const fs::path& path, const fs::path& desktopDir) {
    programs_.clear();
    addDesktopEntries(desktopDir);
    bool complete = false;
    try {
        if (auto own = readPrograms(path)) {
            programs_.splice(programs_.end(), *own);
            complete = true;
        }
    } catch (const std::exception& err) {
        Syslog::error("%s: exception: %s", "reload", err.what());
    }
    dropExcess(programs_);
    return complete;
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
