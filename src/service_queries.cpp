// Views of the session table. The JSON texts are written by hand: their order of members and their quoting are part of
// the interface.
#include "dbus_service.h"

#include "bus_boundary.h"
#include "utils.h"

#include <sstream>

namespace Vard {

namespace {

/// Writes one JSON object, members in the order of the calls.
class ObjectWriter {
public:
    void text(const char* key, const std::string& value) { begin(key) << Utils::stringQuoted(value); }
    void flag(const char* key, bool value) { begin(key) << (value ? "true" : "false"); }
    template <typename Number>
    void number(const char* key, Number value) {
        begin(key) << value;
    }
    [[nodiscard]] std::string finish() const { return "{" + out_.str() + "}"; }

private:
    std::ostream& begin(const char* key) {
        out_ << (first_ ? "" : ",") << '"' << key << "\":";
        first_ = false;
        return out_;
    }

    std::ostringstream out_;
    bool first_ = true;
};

void writeTexts(ObjectWriter& json, const Session& session) {
    json.text("home", session.home.string());
    json.text("xauthfile", session.xauthfile.string());
    json.text("runtimedir", session.runtimedir.string());
    json.text("xsession", session.xsession.string());
    json.text("gecos", session.gecos);
    json.text("shell", session.shell);
    json.text("username", session.username);
    json.text("domain", session.domain);
    json.text("remoteaddr", session.remoteaddr);
    json.text("ntlm", session.ntlm.text());
}

void writeNumbers(ObjectWriter& json, const Session& session) {
    using std::chrono::duration_cast;
    json.number("uid", session.uid);
    json.number("gid", session.gid);
    json.number("display", session.display);
    json.number("sid", session.sid);
    json.number("durationLimit", session.durationLimit);
    json.number("inactivityLimit", session.inactivityLimit);
    json.number("pid1", session.pid1.pid());
    json.number("pid2", session.pid2.pid());
    json.number("pid3", session.pid3.pid());
    json.number("start", duration_cast<std::chrono::seconds>(session.start.time_since_epoch()).count());
}

void writeFlags(ObjectWriter& json, const Session& session) {
    json.flag("sec:nla", session.nla);
    json.flag("sec:tls", session.tls);
    json.flag("sec:rdp", session.rdp);
    json.flag("sec:auth", session.auth);
    json.flag("seamless:mode", session.seamless);
}

} // namespace

std::vector<DBus::Struct<uint32_t, std::string, std::string, uint32_t, uint32_t, uint32_t>>
DBusService::busSessionsInfo() {
    throw not_supported("busSessionsInfo");
}

std::vector<DBus::Struct<std::string, uint32_t>> DBusService::vardSessions() { throw not_supported("vardSessions"); }

std::string DBusService::sessionJson(const SessionPtr& session) {
    // The X server is asked first and without the lock: it is the user's and may let us wait.
    const auto xcb = session->xcb;
    const auto root = xcb ? xcb->getWindowGeometry(xcb->windowRoot()) : Xcb::Rect{};
    ObjectWriter json;
    const std::scoped_lock lock(table_.mutex());
    writeTexts(json, *session);
    writeNumbers(json, *session);
    if (xcb && root.width > 0) {
        json.number("depth", static_cast<unsigned>(xcb->depth()));
        json.number("width", root.width);
        json.number("height", root.height);
    }
    writeFlags(json, *session);
    return Utils::toValidUtf8(json.finish());
}

std::string DBusService::vardSessionInfoJson(const uint32_t& session) {
    const auto found = table_.findSession(session);
    return found ? sessionJson(found) : "{}";
}

std::string DBusService::vardUserInfoJson(const std::string& user) {
    static_cast<void>(user);
    throw not_supported("vardUserInfoJson");
}

std::string DBusService::vardSessionProcess(const uint32_t& session) {
    static_cast<void>(session);
    throw not_supported("vardSessionProcess");
}

} // namespace Vard
