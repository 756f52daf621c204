// What the transport says in its log.
#include "transport_log.h"

#include <regex>

namespace Doors {

namespace {

constexpr size_t longestLine = 512;

bool isActivation(const std::string& text) {
    static const std::regex activated(R"(Client from \S* is activated \(.*)");
    return std::regex_match(text, activated);
}

LogEvent connectionEvent(const std::string& text) {
    static const std::regex negotiated("Negotiated Security: NLA:([01]) TLS:([01]) RDP:([01])");
    std::smatch match;
    if (!std::regex_match(text, match, negotiated)) {
        return {};
    }
    return {LogEvent::Negotiated, 0, match[1] == "1", match[2] == "1", match[3] == "1"};
}

} // namespace

LogEvent parseLogLine(const std::string& line) {
    static const std::regex shape(R"(<(\w+)> (\d{1,9}) (\S+) (.*))");
    std::smatch match;
    if (line.size() > longestLine || !std::regex_match(line, match, shape)) {
        return {};
    }
    const std::string tag = match[3];
    const std::string text = match[4];
    LogEvent event;
    if (tag == "com.freerdp.client.shadow" && isActivation(text)) {
        event.kind = LogEvent::Activated;
    } else if (tag == "com.freerdp.core.connection") {
        event = connectionEvent(text);
    } else if (tag == "com.freerdp.core.listener" && text.starts_with("Listening on ")) {
        event.kind = LogEvent::Listening;
    } else if (tag == "com.freerdp.core.transport" && text == "client authentication failure") {
        event.kind = LogEvent::Refused;
    }
    if (event.kind == LogEvent::Other && match[1] == "ERROR") {
        event.kind = LogEvent::Failure;
    }
    event.thread = std::stoi(match[2]);
    return event;
}

} // namespace Doors
