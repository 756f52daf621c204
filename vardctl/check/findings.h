// What a look at the machine finds.
#pragma once

#include <string>

namespace Vardctl {

/// What one look writes its findings with: each a line of JSON, on its way to the command at once, so that those of a
/// look that hangs afterwards are not lost.
class Findings {
public:
    /// Findings of the check of that name; the descriptor stays the caller's.
    Findings(int descriptor, std::string check) : descriptor_(descriptor), check_(std::move(check)) {}

    /// All is well.
    void ok(const std::string& found) const { write("ok", found, ""); }
    /// The service works, but not as it should, or not for long.
    void warning(const std::string& found, const std::string& remedy) const { write("warning", found, remedy); }
    /// Something of it does not work, or is not safe.
    void error(const std::string& found, const std::string& remedy) const { write("error", found, remedy); }

private:
    void write(const char* status, const std::string& found, const std::string& remedy) const;

    int descriptor_;
    std::string check_;
};

} // namespace Vardctl
