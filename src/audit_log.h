// User records in the kernel's audit log.
#pragma once

#include "file_descriptor.h"

#include <mutex>
#include <string>
#include <string_view>

namespace Vard {

/// The audit connection. Before it is open, and without one (auditing unavailable), writing does nothing. Any thread.
class AuditLog {
public:
    /// Opens the connection; a failure is a warning under the name of the service object, and nothing is written then.
    void open();

    /// Writes one record "operation=user" of the given type with terminal ":display". An address that is no IP address
    /// is left out; null means none. Blocks until the kernel answers; failures are warnings.
    void write(unsigned display, const char* address, int type, std::string_view operation, std::string_view user,
               bool result);

private:
    FileDescriptor handle_;
    std::mutex mutex_; // the answers on the one socket would reach the wrong thread
};

/// The type of all the service's records.
inline constexpr int auditMessageType = 1198;

/// The report of one login attempt: writes a failed "VARD:SessionLogin" when it goes, unless it was told of success.
/// Never destroy it under a lock: writing waits for the kernel.
class LoginAudit {
public:
    explicit LoginAudit(AuditLog& log) : log_(log) {}
    LoginAudit(const LoginAudit&) = delete;
    LoginAudit& operator=(const LoginAudit&) = delete;
    ~LoginAudit();

    /// From now on the attempt is reported, for this display and user.
    void begin(unsigned display, const std::string& user);
    /// The attempt succeeded.
    void success() { result_ = true; }

private:
    AuditLog& log_;
    bool begun_ = false;
    bool result_ = false;
    unsigned display_ = 0;
    std::string user_;
};

} // namespace Vard
