// What the harnesses have in common.
//
// A harness defines LLVMFuzzerTestOneInput, which libFuzzer calls with one input after the other. It ends the process
// where the code under test touches memory that is not its own, does what the language leaves undefined, leaks, takes
// longer than ten seconds, lets an exception out that its declaration does not name, or breaks a promise (expect).
#pragma once

#include "file_descriptor.h"
#include "logger.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace Fuzz {

/// Ends the process, which libFuzzer reports with the input, unless the promise holds.
inline void expect(bool promise) {
    if (!promise) {
        std::abort();
    }
}

/// The input as a text.
inline std::string textOf(const uint8_t* data, size_t size) { return {reinterpret_cast<const char*>(data), size}; }

/// A regular file in memory, for code that opens what it reads.
class MemoryFile {
public:
    MemoryFile() : file_(::memfd_create("input", MFD_CLOEXEC)) { expect(static_cast<bool>(file_)); }

    void fill(const std::string& text) const {
        expect(::ftruncate(file_.get(), 0) == 0);
        expect(::pwrite(file_.get(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    }
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(file_.get()); }

private:
    Vard::FileDescriptor file_;
};

/// The journal has no place in a million runs a minute.
inline const bool silenced = [] {
    Vard::Syslog::setDebugLevel(Vard::DebugLevel::Silent);
    return true;
}();

} // namespace Fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
