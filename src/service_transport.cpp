// The handshake with the proxy and the transports, and the hash line that these need.
#include "dbus_service.h"

#include "caller_text.h"
#include "hash_line.h"
#include "session_command.h"
#include "user_database.h"
#include "user_scope.h"
#include "utils.h"

#include <unistd.h>

#include <limits>
#include <system_error>

namespace Vard {

namespace {

constexpr size_t longestAddress = 64; // bytes; the longest that is one has 45

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

std::string readHashLine(const Session& session) {
    const auto read = [log = session.commandLog()] { return wholeFirstLine(Utils::readSmallFile(log)); };
    return callUserScope(session, read, session.children().tools).value_or("");
}

} // namespace

// Without the line nobody can connect: whoever reads the journal is to know why.
bool DBusService::vardCreateNTLMhashFile(const SessionPtr& session, const std::string& password, bool ntlmv2) {
    constexpr const char* func = "vardCreateNTLMhashFile";
    try {
        auto args = hashArguments(*session, session->domain, password, ntlmv2);
        const Utils::WipeGuard guard(args);
        const auto status =
            runSessionTool(*session, func, config()->settingString("hash:path", "/usr/bin/winpr-hash"), args, true);
        auto line = status == 0 ? readHashLine(*session) : std::string{};
        if (line.empty()) {
            error("%s: no hash line, user: %s, %s", func, session->username.c_str(),
                  status == 0 ? "the tool's output is not a whole line: is the home full?" : "the tool failed");
            return false;
        }
        const std::scoped_lock lock(table_.mutex());
        session->ntlm.take(line);
        return true;
    } catch (const std::system_error& err) {
        error("%s: system error: %s", func, err.what());
    } catch (const std::exception& err) {
        error("%s: exception: %s", func, err.what());
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
    inBackground("proxyClientConnected", [this, session, address = bounded(ipaddr, longestAddress)] {
        sendNotice(session, "", "There was an attempt to connect from a remote address: " + address, 0, true);
    });
}

void DBusService::proxySessionConnected(const uint32_t& session, const uint32_t& pid, const std::string& ipaddr) {
    const auto found = findForRequest(session);
    if (!found) {
        return;
    }
    info("%s: session id: 0x%08x, transport pid: %u, ipaddr: %s", "proxySessionConnected", session, pid,
         ipaddr.c_str());
    auto transport = ProcessHandle::reported(static_cast<pid_t>(pid)); // before anybody looks whose it is
    if (!possibleTransport(pid) || !mayName(transport, found->uid)) {
        error("%s: transport pid refused: %u, session id: 0x%08x", "proxySessionConnected", pid, session);
        return;
    }
    {
        const std::scoped_lock lock(table_.mutex());
        if (found->pid3.exists()) {
            found->pid3.terminate();
        }
        found->remoteaddr = bounded(ipaddr, longestAddress);
        found->pid3 = std::move(transport);
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

// Whoever names a process has it told to end one day: only root may name those of others.
// One that has gone is nobody's, and so may a caller have.
bool DBusService::mayName(const ProcessHandle& process, uid_t sessionUser) {
    const uid_t owner = Utils::processOwner(process.pid());
    if (owner == sessionUser || !process.exists()) {
        return true;
    }
    const uid_t caller = callerUid();
    return caller == 0 || (caller != unknownUid && caller == owner);
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
    const auto found = findForRequest(session);
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
