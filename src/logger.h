// Journal prints with one process-wide level.
#pragma once

#include <atomic>
#include <string>

namespace Vard {

/// Which messages are written; the numbers are part of the interface.
enum class DebugLevel : int {
    None = 0, ///< errors, warnings and notices
    Debug = 1, ///< everything
    Info = 2, ///< everything but debug
    Silent = 3, ///< nothing; no configuration word selects it
};

/// The identity under which the service logs; set by the Syslog constructor.
extern std::string ident;

/// Leveled journal prints. The service object inherits it for the identity; everyone else uses the static operations.
/// Every print takes a printf format, never throws, keeps errno, and may be called from any thread and from a forked
/// child. By convention a format begins with "%s: " and the name of the calling function. A line of more than 64 KiB is
/// cut and ends with " [cut, N bytes]", N being its whole length.
class Syslog {
public:
    /// Sets the process-wide identity, under which journal entries are found (`journalctl -t`).
    explicit Syslog(const char* identity);
    virtual ~Syslog();

    /// The current level.
    static DebugLevel debugLevel();
    /// True when the current level equals the given one.
    static bool isDebugLevel(const DebugLevel& value);
    /// Sets the level for the next message on.
    static void setDebugLevel(const DebugLevel& value);
    /// Sets the level by its word: "debug", "info" or "none". Any other word is logged as an error and changes nothing.
    static void setDebugLevel(const std::string& word);

    /// The hook that a forked child calls before it logs; there is nothing to do for the journal.
    static void syslogChildOpen();

    /// From now on nothing is written; the last line is kept. For a forked child that is about to execute a program
    /// with a secret among its arguments: the journal looks at a sender's command line a moment after the line.
    static void holdBack();
    /// Writes the line that was kept, if any, and those to come.
    static void release();

    static void error(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void warning(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void notice(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void info(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void debug(const char* format, ...) __attribute__((format(printf, 1, 2)));

private:
    static std::atomic<int> level;
};

namespace Utils {

/// Logs at debug level how a child ended, from its raw wait status; silent unless the level is "debug".
void syslogWaitStatus(int status, const char* func, int pid);

/// Logs "%s: %s failed, error: %s, code: %d" at error level for the errno value `code` of the failed call.
void syslogErrno(const char* func, const char* call, int code);

} // namespace Utils
} // namespace Vard
