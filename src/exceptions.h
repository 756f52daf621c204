// The exception types of the service; each one's text is the name of the operation that failed.
#pragma once

#include <stdexcept>

namespace Vard {

/// A failure of the service's own operations.
class vard_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A PAM transaction that could not be started.
class pam_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A failed connection to, or request of, a session's X server.
class xcb_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace Vard
