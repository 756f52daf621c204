// A desktop entry file. A finding means that a package with a broken entry ends the service or garbles other entries.
#include "harness.h"

#include "desktop_file.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Fuzz::MemoryFile file;
    file.fill(Fuzz::textOf(data, size));
    const auto entry = Vard::DesktopFile::parse(file.path());
    for (const auto* value : {&entry.name, &entry.nameRu, &entry.genericName, &entry.genericNameRu, &entry.exec}) {
        Fuzz::expect(value->size() <= size && value->find('\n') == std::string::npos);
    }
    return 0;
}
