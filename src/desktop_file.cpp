// Desktop entry files, as far as the program list needs them.
#include "desktop_file.h"

#include "small_file.h"
#include "text.h"

#include <array>
#include <sstream>
#include <string_view>

namespace Vard {

namespace {

constexpr size_t largestFile = 1 << 20;
constexpr std::string_view entryGroup = "[Desktop Entry]";

/// One key and where its value goes.
struct Key {
    std::string_view prefix;
    void (*store)(DesktopFile& entry, const std::string& value);
};

constexpr std::array keys{
    Key{"Type=", [](DesktopFile& e, const std::string& v) { e.application = Utils::stringLower(v) == "application"; }},
    Key{"Terminal=", [](DesktopFile& e, const std::string& v) { e.terminal = Utils::stringLower(v) == "true"; }},
    Key{"Hidden=", [](DesktopFile& e, const std::string& v) { e.hidden = Utils::stringLower(v) == "true"; }},
    Key{"Name=", [](DesktopFile& e, const std::string& v) { e.name = v; }},
    Key{"Name[ru]=", [](DesktopFile& e, const std::string& v) { e.nameRu = v; }},
    Key{"GenericName=", [](DesktopFile& e, const std::string& v) { e.genericName = v; }},
    Key{"GenericName[ru]=", [](DesktopFile& e, const std::string& v) { e.genericNameRu = v; }},
    Key{"Exec=", [](DesktopFile& e, const std::string& v) { e.exec = v; }},
};

void storeLine(DesktopFile& entry, const std::string& line) {
    for (const auto& key : keys) {
        if (line.starts_with(key.prefix)) {
            key.store(entry, line.substr(key.prefix.size()));
            return;
        }
    }
}

// Empty for what is too large, too: a sparse file is one long line.
std::string readText(const std::filesystem::path& path) {
    auto text = Utils::readFile(path, largestFile + 1, LastLink::followed);
    return text.size() > largestFile ? std::string{} : text;
}

} // namespace

DesktopFile DesktopFile::parse(const std::filesystem::path& path) {
    DesktopFile entry;
    std::istringstream text(readText(path));
    bool inside = false;
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with('[')) {
            inside = line == entryGroup;
        } else if (inside) {
            storeLine(entry, line);
        }
    }
    return entry;
}

} // namespace Vard
