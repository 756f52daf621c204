// A trial of the X server.
#pragma once

#include "json_config.h"

#include <chrono>
#include <string>

namespace Vardctl {

/// How a trial came out.
struct Trial {
    bool answered = false; ///< the server took a client with the cookie
    std::string problem; ///< otherwise: why not
    std::chrono::milliseconds took{}; ///< from the start to the answer
    bool possible = true; ///< false when there could be no trial
};

/// Starts the X server of the settings as the service does for a user, but for a stranger, and asks it as a client with
/// the cookie. This process gets a /tmp of its own before, so that nobody meets the server and nothing of it stays:
/// call it once, in a look.
Trial tryServer(const Vard::JsonConfig& settings);

} // namespace Vardctl
