// The programs that clients may start as a session.
#pragma once

#include <json/json.h>

#include <filesystem>
#include <list>
#include <string>
#include <vector>

namespace Vard {

/// One startable program.
struct Program {
    std::string name; ///< by which clients ask for it
    std::filesystem::path path; ///< of what is executed
    std::list<std::string> args; ///< without the program itself
};

/// Fills the record from a JSON object with "name", "path" and "args". Throws on wrong types.
const Json::Value& operator>>(const Json::Value& value, Program& program);
/// A string element. Throws jsoncpp's exception when it cannot be converted.
const Json::Value& operator>>(const Json::Value& value, std::string& text);

/// The elements of a JSON array in order; empty for anything else.
template <typename T>
std::list<T> valueToList(const Json::Value& value) {
    std::list<T> result;
    if (value.isArray()) {
        for (const auto& element : value) {
            element >> result.emplace_back();
        }
    }
    return result;
}

/// The published programs: the system's desktop entries, then the administrator's own list. One thread at a time.
class ProgramList {
public:
    /// Builds the list anew from `desktopDir` and the JSON file. False, after an error line, when the JSON part could
    /// not be read; the desktop entries stay. An element that cannot be understood is left out after an error line that
    /// names its place, counted from 1. Never throws for what lies in the files. The names take at most 4 MiB together;
    /// what is beyond is dropped with a warning.
    bool reload(const std::filesystem::path& path, const std::filesystem::path& desktopDir = "/usr/share/applications");
    /// The first program of exactly that name, or null; valid until the next reload.
    [[nodiscard]] const Program* find(const std::string& name) const;
    /// All names in list order.
    [[nodiscard]] std::vector<std::string> getNames() const;

private:
    void addDesktopEntries(const std::filesystem::path& dir);

    std::list<Program> programs_;
};

} // namespace Vard
