// What the service knows of one session.
#include "session_info.h"

namespace Vardctl {

namespace {

// A row of the service's list, in the order of its fields: id, user, start, age, user id, group id.
Json::Value readRow(BusClient::Message& answer) {
    Json::Value entry;
    const auto id = answer.count();
    entry["session"] = id;
    entry["display"] = ":" + std::to_string(id);
    entry["user"] = answer.text();
    answer.text(); // as the session has it, too
    entry["age"] = answer.count();
    entry["uid"] = answer.count();
    answer.count();
    return entry;
}

} // namespace

std::vector<Json::Value> sessionRows(Service& service) {
    auto answer = service.query("busSessionsInfo");
    return answer.list("(ussuuu)", [&] { return answer.structure("ussuuu", [&] { return readRow(answer); }); });
}

std::optional<Json::Value> findSession(Service& service, uint32_t id) {
    auto session = parseJson(service.query("vardSessionInfoJson", "u", id).text());
    return session.empty() ? std::nullopt : std::optional(std::move(session));
}

Json::Value requireSession(Service& service, uint32_t id) {
    auto session = findSession(service, id);
    if (!session) {
        throw noSession(id);
    }
    return *std::move(session);
}

Json::Value sessionsOf(Service& service, const std::string& user) {
    return parseJson(service.query("vardUserInfoJson", "s", user.c_str()).text());
}

std::string sizeText(const Json::Value& session) {
    return session.isMember("width") ? session["width"].asString() + "x" + session["height"].asString() : "";
}

Failure noSession(uint32_t id) { return {ExitCode::failed, "no such session: " + std::to_string(id)}; }

} // namespace Vardctl
