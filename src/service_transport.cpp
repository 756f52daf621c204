// The handshake with the proxy and the transports.
#include "bus_boundary.h"
#include "dbus_service.h"
#include "session_desktop.h"
#include "session_request.h"
#include "session_transport.h"

namespace Vard {

DBusService::SessionPtr DBusService::findForRequest(uint32_t sid) {
    const auto found = table_.findSession(sid);
    const auto sessions = table_.lock();
    if (!found || found->ended) {
        return nullptr;
    }
    request_ = RequestHold(found);
    return found;
}

void DBusService::proxyListenStarted(Number session, const bool& status) {
    if (!table_.findSession(session)) {
        return;
    }
    info("%s: session id: 0x%08x, status: %s", "proxyListenStarted", session, status ? "success" : "failed");
    proxyListenActive_ = true; // that the proxy has reported, not that it listens
}

void DBusService::proxyClientConnected(Number session, Text ipaddr) {
    if (!table_.findSession(session)) {
        return;
    }
    info("%s: session id: 0x%08x, ipaddr: %s", "proxyClientConnected", session, ipaddr.c_str());
    proxyListenActive_ = false;
    tasks_.runAnyway("proxyClientConnected",
                     [this, session, notice = attemptNotice(ipaddr)] { notices_.send(table_, session, notice); });
}

void DBusService::proxySessionConnected(Number session, Number pid, Text ipaddr) {
    const auto found = findForRequest(session);
    if (!found) {
        return;
    }
    info("%s: session id: 0x%08x, transport pid: %u, ipaddr: %s", "proxySessionConnected", session, pid,
         ipaddr.c_str());
    const TransportClaim claim{pid, ipaddr, [this] { return callerUid(conn(), *call_); }};
    if (takeTransport(table_, *found, claim, children_)) {
        waitSessionFixSetxkbmapEvdev(found.get());
        signals_.sessionConnected(session);
    }
}

void DBusService::proxyListenTimeout(Number timeout) {
    info("%s: set timeout: %u", "proxyListenTimeout", timeout);
    signals_.proxyListenTimeout(timeout);
}

void DBusService::vardRdpSecurityPolicy(Number session, const bool& nla, const bool& tls, const bool& rdp) {
    info("%s: session id: 0x%08x, nla: %d, tls: %d, rdp: %d", "vardRdpSecurityPolicy", session, nla, tls, rdp);
    if (const auto found = table_.findSession(session)) {
        SecurityFlags{nla, tls, rdp, {}}.applyTo(table_.lock().state(*found));
    }
}

bool DBusService::vardConnectRdpTransport(Number session, Number timeout) {
    const auto found = findForRequest(session);
    if (!found) {
        return false;
    }
    info("%s: session id: 0x%08x, timeout: %u", "vardConnectRdpTransport", session, timeout);
    if (const auto transport = runningTransport(table_, *found)) {
        error("%s: transport also running, session id: 0x%08x, pid: %d", "vardConnectRdpTransport", session,
              transport.pid());
        return false;
    }
    signals_.proxyListenTimeout(timeout);
    signals_.proxyAllowConnection(found->sid, found->uid);
    return true;
}

bool DBusService::vardCheckProxyListen() { return proxyListenActive_; }

} // namespace Vard
