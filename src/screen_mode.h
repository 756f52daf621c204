// Which screen mode serves a requested size.
#pragma once

#include "xcb_connector.h"

#include <cstdint>
#include <vector>

namespace Vard {

/// A screen size in pixels.
struct ScreenMode {
    uint16_t width = 0;
    uint16_t height = 0;
    bool operator==(const ScreenMode&) const = default;
};

/// The mode to apply for a request: an exact match; else, after a warning under "waitSessionGeometryUpdate", the
/// largest mode whose area exceeds the requested one (not the nearest), or the request itself when there is none.
/// Otherwise pure.
ScreenMode chooseScreenMode(const std::vector<Xcb::ScreenSize>& sizes, ScreenMode requested);

} // namespace Vard
