// Who may call what, for a refused caller's message. The bus policy decides; this follows it.
#pragma once

#include <string>
#include <string_view>

namespace Vardctl {

/// The group whose members may call the method; empty when it is for root alone.
std::string_view requiredGroup(std::string_view method);

/// Tells a refused caller who may call the method.
std::string deniedMessage(std::string_view method);

} // namespace Vardctl
