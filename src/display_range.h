// Which display numbers are the service's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Vard {

class JsonConfig;

/// The last display that an X server can have.
inline constexpr uint32_t lastDisplay = 59535;

/// The range of display numbers handed out: `first` and how many.
struct DisplayRange {
    int first = 33;
    size_t count = 22;

    /// The range between two configured ends, in any order, by their absolute values; the upper end is not part of it.
    /// None, after an error line under `func`, when a display above lastDisplay would be part of it.
    static std::optional<DisplayRange> of(int min, int max, const char* func);
    /// The range that the configuration names when the service starts; the built-in one when it names none that can be.
    static DisplayRange configured(const JsonConfig& config);
    /// The range that a configuration read again names. None when it cannot be, also when an end is no number: its
    /// default would move the range in force. Logs what is wrong.
    static std::optional<DisplayRange> changed(const JsonConfig& config);
};

} // namespace Vard
