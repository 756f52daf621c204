// The service's signals as lines.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace Vardctl {

/// Something that the service did: one of its signals, or its coming and going.
struct Event {
    std::chrono::system_clock::time_point time;
    std::string name; ///< the signal's name, or "servicePresent", "serviceAbsent", "serviceAppeared", "serviceLeft"
    std::vector<uint32_t> values; ///< the signal's arguments
};

/// The event in one line, with local time and line end.
std::string eventLine(const Event& event);

/// The event as one JSON object in one line; the time is UTC in the ISO form.
std::string eventJson(const Event& event);

} // namespace Vardctl
