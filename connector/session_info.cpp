// What a door needs to know of its session.
#include "session_info.h"

#include <json/json.h>

#include <memory>
#include <regex>

namespace Doors {

namespace {
constexpr size_t longestHashLine = 512;

bool readJson(const std::string& text, Json::Value& value) {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    try {
        return reader->parse(text.data(), text.data() + text.size(), &value, nullptr);
    } catch (const Json::RuntimeError&) { // nested deeper than the reader goes
        return false;
    }
}

} // namespace

bool validHashLine(const std::string& line, const std::string& username) {
    static const std::regex rest(":[^:[:cntrl:]]*:[0-9A-Fa-f]*:[0-9A-Fa-f]{32}:::");
    return !username.empty() && line.size() <= longestHashLine && line.starts_with(username) &&
           std::regex_match(line.begin() + static_cast<std::ptrdiff_t>(username.size()), line.end(), rest);
}

std::optional<SessionInfo> parseSessionInfo(const std::string& text) {
    Json::Value value;
    if (!readJson(text, value) || !value.isObject() || !value["username"].isString() || !value["display"].isUInt() ||
        !value["xauthfile"].isString() || !value["ntlm"].isString()) {
        return std::nullopt;
    }
    return SessionInfo{value["username"].asString(),
                       value["xauthfile"].asString(),
                       value["ntlm"].asString(),
                       value["display"].asUInt(),
                       value["start"].isInt64() ? value["start"].asInt64() : 0,
                       value["seamless:mode"] != true};
}

} // namespace Doors
