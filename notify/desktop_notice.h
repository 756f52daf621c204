// A notice through the desktop's notification service.
#pragma once

#include "arguments.h"

namespace Vard {

/// Hands the notice to the notification service that runs on the user's session bus; none is started. False when there
/// is none, or it did not take the notice within two seconds a step.
bool showOnDesktop(const Notice& notice);

} // namespace Vard
