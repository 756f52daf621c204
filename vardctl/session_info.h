// What the service knows of one session.
#pragma once

#include "json.h"
#include "service.h"

#include <optional>
#include <vector>

namespace Vardctl {

/// The service's list of sessions: "session", its id, "display", "user", "age" in seconds, "uid".
std::vector<Json::Value> sessionRows(Service& service);
/// The session's members; nothing when no session has that id.
std::optional<Json::Value> findSession(Service& service, uint32_t id);
/// The same; throws Failure when no session has that id.
Json::Value requireSession(Service& service, uint32_t id);

/// All sessions of a user, in an array.
Json::Value sessionsOf(Service& service, const std::string& user);

/// The screen's size as in 1280x1024; empty when the session's X server did not tell.
std::string sizeText(const Json::Value& session);

/// The failure for an id that no session has.
Failure noSession(uint32_t id);

} // namespace Vardctl
