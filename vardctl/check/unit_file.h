// Units as their files describe them, whether a manager runs or not.
#pragma once

#include <string>
#include <vector>

namespace Vardctl {

/// The values of a key in a unit's file and its drop-ins, in order; an empty one takes back those before it.
std::vector<std::string> unitValues(const std::string& unit, const std::string& key);

} // namespace Vardctl
