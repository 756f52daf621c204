// What the transport says in its log.
#include "transport_log.h"

#include <arpa/inet.h>

#include <array>
#include <regex>

namespace Doors {

namespace {

constexpr size_t longestLine = 512;

bool isAddress(int family, const std::string& text) {
    std::array<char, sizeof(in6_addr)> bytes{};
    // It stops at a NUL, behind which anything may stand.
    return text.find('\0') == std::string::npos && ::inet_pton(family, text.c_str(), bytes.data()) == 1;
}

LogEvent shadowEvent(const std::string& text, pid_t thread) {
    static const std::regex activated(R"(Client from (\S+) is activated \(.*)");
    std::smatch match;
    if (!std::regex_match(text, match, activated)) {
        return {};
    }
    return {LogEvent::Activated, thread, plainAddress(match[1]), false, false, false};
}

LogEvent connectionEvent(const std::string& text) {
    static const std::regex negotiated("Negotiated Security: NLA:([01]) TLS:([01]) RDP:([01])");
    std::smatch match;
    if (!std::regex_match(text, match, negotiated)) {
        return {};
    }
    return {LogEvent::Negotiated, 0, {}, match[1] == "1", match[2] == "1", match[3] == "1"};
}

} // namespace

std::string plainAddress(const std::string& full) {
    const std::string text = full.substr(0, full.find('%')); // a link-local address has its interface behind it
    const std::string mapped = "::ffff:";
    if (text.starts_with(mapped) && isAddress(AF_INET, text.substr(mapped.size()))) {
        return text.substr(mapped.size());
    }
    return isAddress(AF_INET, text) || isAddress(AF_INET6, text) ? text : std::string();
}

LogEvent parseLogLine(const std::string& line) {
    static const std::regex shape(R"(<(\w+)> (\d{1,9}) (\S+) (.*))");
    std::smatch match;
    if (line.size() > longestLine || !std::regex_match(line, match, shape)) {
        return {};
    }
    const std::string tag = match[3];
    const std::string text = match[4];
    LogEvent event;
    if (tag == "com.freerdp.client.shadow") {
        event = shadowEvent(text, std::stoi(match[2]));
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
    return event;
}

} // namespace Doors
