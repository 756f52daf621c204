// User records in the kernel's audit log.
#include "audit_log.h"

#include "logger.h"

#include <arpa/inet.h>
#include <libaudit.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace Vard {

namespace {

// The library prints an address as it stands, so that anything else could forge fields of the record.
const char* checkedAddress(const char* address) {
    std::array<unsigned char, sizeof(in6_addr)> binary{};
    const bool valid = address != nullptr && (::inet_pton(AF_INET, address, binary.data()) == 1 ||
                                              ::inet_pton(AF_INET6, address, binary.data()) == 1);
    return valid ? address : nullptr;
}

void warnErrno(const char* func, const char* call) {
    const int code = errno;
    Syslog::warning("%s: %s failed, error: %s, code: %d", func, call, std::strerror(code), code);
}

} // namespace

void AuditLog::open() {
    handle_.reset(::audit_open());
    if (!handle_) {
        warnErrno("DBusService", "audit_open");
    }
}

void AuditLog::write(unsigned display, const char* address, int type, std::string_view operation, std::string_view user,
                     bool result) {
    if (!handle_) {
        return;
    }
    const std::unique_ptr<char, decltype(&std::free)> text(
        ::audit_encode_nv_string(std::string(operation).c_str(), std::string(user).c_str(),
                                 static_cast<unsigned>(user.size())),
        &std::free);
    if (!text) {
        return;
    }
    const std::string terminal = ":" + std::to_string(display);
    const std::scoped_lock lock(mutex_);
    if (::audit_log_user_message(handle_.get(), type, text.get(), nullptr, checkedAddress(address), terminal.c_str(),
                                 result ? 1 : 0) < 1) {
        warnErrno("auditUserMessage", "audit_log_user_message");
    }
}

LoginAudit::~LoginAudit() {
    if (begun_) {
        log_.write(display_, nullptr, auditMessageType, "VARD:SessionLogin", user_, result_);
    }
}

void LoginAudit::begin(unsigned display, const std::string& user) {
    begun_ = true;
    display_ = display;
    user_ = user;
}

} // namespace Vard
