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

/// Returns in a child, which adopts what loses its parent there. The caller may have children from before it became
/// this command, which are none of its business: it waits, and ends with the child's exit status.
void goOnAlone();

/// Carries out a check in a process that may do no more than `lookLimit` allows, and ends whatever it leaves running.
/// That it did not come to its end is a finding, too. Only after goOnAlone(): it ends all children.
std::vector<Json::Value> carryOut(const Check& check, const Subject& subject);

} // namespace Vardctl
