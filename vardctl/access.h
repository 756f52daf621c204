// Who may call what, for a refused caller's message. The bus policy decides; this follows it.
#pragma once

#include <string>
#include <string_view>

namespace Vardctl {

/// Tells a refused caller who may call the method.
std::string deniedMessage(std::string_view method);

} // namespace Vardctl
