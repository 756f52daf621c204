// The handshake with the proxy and the transports, and the hash line that these need.
#include "dbus_service.h"

#include "bus_boundary.h"
#include "session_command.h"
#include "utils.h"

#include <system_error>

namespace Vard {

namespace {

std::list<std::string> hashArguments(const Session& session, const std::string& domain, const std::string& password,
                                     bool ntlmv2) {
    std::list<std::string> args{"-f", "sam", "-u", session.username, "-p", password};
    if (ntlmv2) {
        args.insert(args.end(), {"-d", Utils::stringUpper(domain), "-v", "2"});
    } else {
        args.insert(args.end(), {"-v", "1"});
    }
    return args;
}

} // namespace

bool DBusService::vardCreateNTLMhashFile(const SessionPtr& session, const std::string& password, bool ntlmv2) {
    try {
        auto args = hashArguments(*session, session->domain, password, ntlmv2);
        const Utils::WipeGuard guard(args);
        {
            const std::scoped_lock lock(childWaits_.mutex());
            auto tool = runSessionCommand(*session, config()->settingString("hash:path", "/usr/bin/winpr-hash"), args,
                                          {}, true);
            const int status = tool.getWithin(toolLimit, "vardCreateNTLMhashFile");
            Utils::syslogWaitStatus(status, "vardCreateNTLMhashFile", tool.pid());
        }
        auto line = callUserScope(*session, [log = session->commandLog()] { return Utils::readFirstLine(log); });
        const std::scoped_lock lock(table_.mutex());
        session->ntlm.take(line);
        return true;
    } catch (const std::system_error& err) {
        error("%s: system error: %s", "vardCreateNTLMhashFile", err.what());
    } catch (const std::exception& err) {
        error("%s: exception: %s", "vardCreateNTLMhashFile", err.what());
    }
    return false;
}

void DBusService::proxyListenStarted(const uint32_t& session, const bool& status) {
    static_cast<void>(session);
    static_cast<void>(status);
    throw not_supported("proxyListenStarted");
}

void DBusService::proxyClientConnected(const uint32_t& session, const std::string& ipaddr) {
    static_cast<void>(session);
    static_cast<void>(ipaddr);
    throw not_supported("proxyClientConnected");
}

void DBusService::proxySessionConnected(const uint32_t& session, const uint32_t& pid, const std::string& ipaddr) {
    static_cast<void>(session);
    static_cast<void>(pid);
    static_cast<void>(ipaddr);
    throw not_supported("proxySessionConnected");
}

void DBusService::proxyListenTimeout(const uint32_t& timeout) {
    static_cast<void>(timeout);
    throw not_supported("proxyListenTimeout");
}

void DBusService::vardRdpSecurityPolicy(const uint32_t& session, const bool& nla, const bool& tls, const bool& rdp) {
    static_cast<void>(session);
    static_cast<void>(nla);
    static_cast<void>(tls);
    static_cast<void>(rdp);
    throw not_supported("vardRdpSecurityPolicy");
}

bool DBusService::vardConnectRdpTransport(const uint32_t& session, const uint32_t& timeout) {
    static_cast<void>(session);
    static_cast<void>(timeout);
    throw not_supported("vardConnectRdpTransport");
}

bool DBusService::vardCheckProxyListen() { throw not_supported("vardCheckProxyListen"); }

} // namespace Vard
