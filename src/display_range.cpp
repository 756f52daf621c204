// Which display numbers are the service's.
#include "display_range.h"

#include "json_config.h"
#include "logger.h"

#include <algorithm>
#include <cstdlib>

namespace Vard {

namespace {

std::optional<DisplayRange> rangeIn(const JsonConfig& config, const char* func) {
    return DisplayRange::of(config.setting(Settings::displayMin), config.setting(Settings::displayMax), func);
}

} // namespace

std::optional<DisplayRange> DisplayRange::of(int min, int max, const char* func) {
    const long low = std::min(std::labs(min), std::labs(max));
    const long high = std::max(std::labs(min), std::labs(max));
    if (high > long{lastDisplay} + 1) {
        Syslog::error("%s: display range refused: %d, %d", func, min, max);
        return std::nullopt;
    }
    return DisplayRange{static_cast<int>(low), static_cast<size_t>(high - low)};
}

DisplayRange DisplayRange::configured(const JsonConfig& config) {
    return rangeIn(config, "DBusService").value_or(DisplayRange{});
}

std::optional<DisplayRange> DisplayRange::changed(const JsonConfig& config) {
    const auto range = rangeIn(config, "reloadConfigWatcher"); // says what is wrong with it
    const bool numbers = config.converted(Settings::displayMin) && config.converted(Settings::displayMax);
    return numbers ? range : std::nullopt;
}

} // namespace Vard
