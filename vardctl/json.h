// JSON as the service writes it and as the command prints it.
#pragma once

#include <json/json.h>

#include <string>

namespace Vardctl {

/// Reads the service's text, which escapes quotation marks and backslashes only. Throws Failure when it is no JSON.
Json::Value parseJson(const std::string& text);

/// One line; everything but ASCII is escaped, so that it does a terminal no harm either.
std::string jsonLine(const Json::Value& value);

} // namespace Vardctl
