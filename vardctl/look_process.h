// A look in a process of its own.
#pragma once

#include "looks.h"

#include <json/json.h>

#include <chrono>
#include <vector>

namespace Vardctl {

/// A check: its name and what it looks with.
struct Check {
    const char* name;
    void (*look)(const Subject& subject, const Findings& findings);
};

/// How long one look may take.
inline constexpr std::chrono::seconds lookLimit{30};

/// Carries out a check in a process that may do no more than `lookLimit` allows, and ends whatever it leaves running.
/// That it did not come to its end is a finding, too. Adopts what loses its parent: call it where this process has no
/// other children.
std::vector<Json::Value> carryOut(const Check& check, const Subject& subject);

} // namespace Vardctl
