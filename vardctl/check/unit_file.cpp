// Units as their files describe them, whether a manager runs or not.
#include "unit_file.h"

#include "small_file.h"

#include <array>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>

namespace fs = std::filesystem;

namespace Vardctl {

namespace {

// The first counts most.
constexpr std::array<const char*, 4> directories{"/etc/systemd/system", "/run/systemd/system",
                                                 "/usr/local/lib/systemd/system", "/lib/systemd/system"};

std::string trimmed(const std::string& text) {
    constexpr const char* blanks = " \t\r";
    const auto begin = text.find_first_not_of(blanks);
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

/// The unit's own file, and then its drop-ins by their names.
std::vector<fs::path> filesOf(const std::string& unit) {
    std::optional<fs::path> own;
    std::map<std::string, fs::path> dropIns;
    for (const fs::path directory : directories) {
        std::error_code failed;
        if (!own && fs::exists(directory / unit, failed)) {
            own = directory / unit;
        }
        for (fs::directory_iterator it(directory / (unit + ".d"), failed), end; !failed && it != end;
             it.increment(failed)) {
            if (it->path().extension() == ".conf") {
                dropIns.emplace(it->path().filename(), it->path());
            }
        }
    }
    std::vector<fs::path> files;
    if (own) {
        files.push_back(*own);
    }
    for (const auto& [name, path] : dropIns) {
        files.push_back(path);
    }
    return files;
}

} // namespace

std::vector<std::string> unitValues(const std::string& unit, const std::string& key) {
    std::vector<std::string> values;
    for (const auto& file : filesOf(unit)) {
        std::istringstream lines(Vard::Utils::readSmallFile(file, true));
        for (std::string line; std::getline(lines, line);) {
            const auto sign = line.find('=');
            if (sign == std::string::npos || trimmed(line.substr(0, sign)) != key) {
                continue;
            }
            const auto value = trimmed(line.substr(sign + 1));
            value.empty() ? values.clear() : values.push_back(value);
        }
    }
    return values;
}

} // namespace Vardctl
