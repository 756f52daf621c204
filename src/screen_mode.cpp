// Which screen mode serves a requested size.
#include "screen_mode.h"

#include "logger.h"

#include <algorithm>

namespace Vard {

namespace {

uint32_t area(const Xcb::ScreenSize& size) { return uint32_t{size.width} * size.height; }

} // namespace

ScreenMode chooseScreenMode(const std::vector<Xcb::ScreenSize>& sizes, ScreenMode requested) {
    const auto matches = [&](const auto& size) {
        return size.width == requested.width && size.height == requested.height;
    };
    if (std::ranges::any_of(sizes, matches)) {
        return requested;
    }
    Syslog::warning("%s: mode not found, %ux%u", "waitSessionGeometryUpdate", requested.width, requested.height);
    // Of equal areas the first in the server's order.
    const auto largest = std::ranges::max_element(sizes, {}, area);
    if (largest == sizes.end() || area(*largest) <= area({requested.width, requested.height, 0, 0})) {
        return requested;
    }
    Syslog::info("%s: usage mode %ux%u", "waitSessionGeometryUpdate", largest->width, largest->height);
    return {largest->width, largest->height};
}

} // namespace Vard
