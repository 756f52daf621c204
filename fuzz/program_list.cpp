// The administrator's list of programs and, behind a line "---", a desktop entry beside it. A finding means that a
// mistake in the list ends the service at its start or reload, or that a name gets onto the bus which the bus refuses.
#include "harness.h"

#include "program_list.h"

#include <dbus/dbus.h>

#include <filesystem>

namespace {

/// A directory whose one entry is the file in memory.
class EntryDirectory {
public:
    explicit EntryDirectory(const std::string& target) {
        Fuzz::expect(::mkdtemp(path_.data()) != nullptr);
        std::filesystem::create_symlink(target, path_ + "/input.desktop");
    }
    ~EntryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    EntryDirectory(const EntryDirectory&) = delete;
    EntryDirectory& operator=(const EntryDirectory&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_ = "/tmp/vard-fuzz-XXXXXX";
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Fuzz::MemoryFile list;
    static const Fuzz::MemoryFile entry;
    static const EntryDirectory entries(entry.path());
    const auto text = Fuzz::textOf(data, size);
    const std::string mark = "\n---\n";
    const size_t end = std::min(text.find(mark), text.size());
    list.fill(text.substr(0, end));
    entry.fill(text.substr(std::min(end + mark.size(), text.size())));
    Vard::ProgramList programs;
    programs.reload(list.path(), entries.path());
    for (const auto& name : programs.getNames()) {
        Fuzz::expect(::dbus_validate_utf8(name.c_str(), nullptr) != 0 && name.find('\0') == std::string::npos);
        Fuzz::expect(programs.find(name) != nullptr);
    }
    return 0;
}
