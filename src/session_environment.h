// The variables that every program of a session gets.
#pragma once

#include "session.h"

#include <list>
#include <string>

namespace Vard {

/// The variables of every program of the session: the user's bus address where there is one, then the session's own.
std::list<std::string> sessionEnvironment(const Session& session);

} // namespace Vard
