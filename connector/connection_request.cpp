// The first packet of a remote-desktop client.
#include "connection_request.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

namespace Doors {

namespace {

constexpr size_t fixedPart = 11; // the TPKT's header and the request's, before the text
constexpr char negotiation = 1; // what begins so is no text
constexpr std::string_view cookie = "Cookie: mstshash=";
constexpr std::string_view token = "vard-session=";

unsigned byteAt(const std::string& packet, size_t place) { return static_cast<unsigned char>(packet[place]); }

std::optional<uint32_t> sessionOf(std::string_view text) {
    if (!text.starts_with(token)) {
        return std::nullopt;
    }
    text.remove_prefix(token.size());
    uint32_t session = 0;
    const auto [rest, failed] = std::from_chars(text.data(), text.data() + text.size(), session);
    const bool whole = rest == text.data() + text.size() || *rest == ';';
    return failed == std::errc{} && whole ? std::optional(session) : std::nullopt;
}

// The lengths in the two headers are one, counted from different places; the second has one byte only.
std::string withoutText(const std::string& packet, size_t end) {
    std::string shorter = packet.substr(0, fixedPart) + packet.substr(end);
    shorter[2] = static_cast<char>(shorter.size() >> 8);
    shorter[3] = static_cast<char>(shorter.size() & 0xFF);
    shorter[4] = static_cast<char>(shorter.size() - requestHeader - 1);
    return shorter;
}

// In small letters, which are the same to clients' makers.
std::string plainUser(const std::string& text) {
    const size_t slash = text.rfind('\\');
    auto user = slash == std::string::npos ? text : text.substr(slash + 1);
    user.resize(std::min(user.size(), user.find('@')));
    std::ranges::transform(user, user.begin(), [](unsigned char one) { return static_cast<char>(std::tolower(one)); });
    return user;
}

constexpr size_t cutUser = 9;

} // namespace

std::optional<size_t> requestLength(const std::string& begin) {
    if (begin.size() < requestHeader || byteAt(begin, 0) != 3) {
        return std::nullopt;
    }
    const size_t length = byteAt(begin, 2) << 8 | byteAt(begin, 3);
    return length >= fixedPart && length <= longestRequest ? std::optional(length) : std::nullopt;
}

std::optional<ConnectionRequest> parseConnectionRequest(const std::string& packet) {
    constexpr unsigned connectionRequest = 0xE0;
    if (requestLength(packet) != packet.size() || (byteAt(packet, 5) & 0xF0) != connectionRequest ||
        byteAt(packet, 4) != packet.size() - requestHeader - 1) {
        return std::nullopt;
    }
    ConnectionRequest request{.user = {}, .session = {}, .packet = packet};
    const size_t end = packet.find("\r\n", fixedPart);
    if (end == std::string::npos || packet[fixedPart] == negotiation) {
        return request;
    }
    if (end + 2 < packet.size() && packet[end + 2] != negotiation) {
        return std::nullopt; // one text is enough
    }
    const auto text = std::string_view(packet).substr(fixedPart, end - fixedPart);
    if (text.starts_with(cookie)) {
        request.user = text.substr(cookie.size());
    } else {
        request.session = sessionOf(text);
        request.packet = withoutText(packet, end + 2);
    }
    return request;
}

UserMatch matchUser(const std::string& text, const std::string& username) {
    const auto asked = plainUser(text);
    const auto known = plainUser(username);
    if (text == username) {
        return UserMatch::Exact;
    }
    if (asked.empty()) {
        return UserMatch::None;
    }
    if (asked == known) {
        return UserMatch::Plain;
    }
    const bool begins = known.starts_with(asked) || username.starts_with(text);
    return text.size() == cutUser && begins ? UserMatch::Cut : UserMatch::None;
}

} // namespace Doors
