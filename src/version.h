// Which version of the product this is.
#pragma once

#include <string>
#include <string_view>

namespace Vard {

/// The product version for a component word, as logged at the start and answered on the bus.
std::string productVersion(std::string_view component);

} // namespace Vard
