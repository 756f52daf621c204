// The handshake with the proxy and the transports, and the hash line that these need.
#include "dbus_service.h"

#include "session_command.h"
#include "utils.h"

#include <unistd.h>

#include <limits>
#include <system_error>

namespace Vard {

namespace {

std::list<std::string> hashArguments(const Session& session, const std::string& domain, const std::string& password,
                                     bool ntlmv2) {
    std::list<std::string> args{"-f", "sam", "-u", session.username, "-p"};
    args.emplace_back(password); // not in the braces, which would leave a copy behind
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
        auto tool =
            runSessionCommand(*session, config()->settingString("hash:path", "/usr/bin/winpr-hash"), args, {}, true);
        // Its full time, whatever the session's other tools did: without the line nobody can connect.
        const int status = tool.getWithin(toolLimit, "vardCreateNTLMhashFile");
        Utils::syslogWaitStatus(status, "vardCreateNTLMhashFile", tool.pid());
        auto line = callUserScope(
            *session, [log = session->commandLog()] { return Utils::readFirstLine(log); },
            tool.killed() ? shortToolLimit : toolLimit);
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
    if (!table_.findSession(session)) {
        return;
    }
    info("%s: session id: 0x%08x, status: %s", "proxyListenStarted", session, status ? "success" : "failed");
    proxyListenActive_ = true; // that the proxy has reported, not that it listens
}

void DBusService::proxyClientConnected(const uint32_t& session, const std::string& ipaddr) {
    if (!table_.findSession(session)) {
        return;
    }
    info("%s: session id: 0x%08x, ipaddr: %s", "proxyClientConnected", session, ipaddr.c_str());
    proxyListenActive_ = false;
    inBackground("proxyClientConnected", [this, session, ipaddr] {
        vardSendNotify(session, "", "There was an attempt to connect from a remote address: " + ipaddr, 0);
    });
}

void DBusService::proxySessionConnected(const uint32_t& session, const uint32_t& pid, const std::string& ipaddr) {
    const auto found = table_.findSession(session);
    if (!found) {
        return;
    }
    info("%s: session id: 0x%08x, transport pid: %u, ipaddr: %s", "proxySessionConnected", session, pid,
         ipaddr.c_str());
    if (!possibleTransport(pid)) {
        error("%s: transport pid refused: %u, session id: 0x%08x", "proxySessionConnected", pid, session);
        return;
    }
    {
        const std::scoped_lock lock(table_.mutex());
        if (found->pid3.exists()) {
            found->pid3.terminate();
        }
        found->remoteaddr = ipaddr;
        found->pid3 = ProcessHandle::reported(static_cast<pid_t>(pid));
    }
    waitSessionFixSetxkbmapEvdev(found.get());
    emitSignal([&] { signalSessionConnected(session); });
}

// The transport will be told to end one day: a number that the system calls take for a group, the init process and the
// service with its own children are none.
bool DBusService::possibleTransport(uint32_t pid) {
    if (pid > static_cast<uint32_t>(std::numeric_limits<pid_t>::max())) {
        return false;
    }
    const auto number = static_cast<pid_t>(pid);
    return number != 1 && number != ::getpid() && !childWaits_.holds(number);
}

void DBusService::proxyListenTimeout(const uint32_t& timeout) {
    info("%s: set timeout: %u", "proxyListenTimeout", timeout);
    emitSignal([&] { signalProxyListenTimeout(timeout); });
}

void DBusService::vardRdpSecurityPolicy(const uint32_t& session, const bool& nla, const bool& tls, const bool& rdp) {
    info("%s: session id: 0x%08x, nla: %d, tls: %d, rdp: %d", "vardRdpSecurityPolicy", session, nla, tls, rdp);
    if (const auto found = table_.findSession(session)) {
        const std::scoped_lock lock(table_.mutex());
        found->nla = nla;
        found->tls = tls;
        found->rdp = rdp;
    }
}

bool DBusService::vardConnectRdpTransport(const uint32_t& session, const uint32_t& timeout) {
    const auto found = table_.findSession(session);
    if (!found) {
        return false;
    }
    info("%s: session id: 0x%08x, timeout: %u", "vardConnectRdpTransport", session, timeout);
    ProcessHandle transport;
    {
        const std::scoped_lock lock(table_.mutex());
        transport = found->pid3;
    }
    if (transport.exists()) {
        error("%s: transport also running, session id: 0x%08x, pid: %d", "vardConnectRdpTransport", session,
              transport.pid());
        return false;
    }
    emitSignal([&] { signalProxyListenTimeout(timeout); });
    allowConnection(*found);
    return true;
}

bool DBusService::vardCheckProxyListen() { return proxyListenActive_; }

} // namespace Vard
