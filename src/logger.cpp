// Journal prints with one process-wide level.
#include "logger.h"

#include <sys/wait.h>
#include <systemd/sd-journal.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace Vard {

std::string ident;

std::atomic<int> Syslog::level{static_cast<int>(DebugLevel::Info)};

namespace {

// The location fields name the logger itself; the caller stands in the message.
void print(int priority, const char* line, const char* func, const char* format, va_list args) {
    const int saved = errno;
    sd_journal_printv_with_location(priority, "CODE_FILE=src/logger", line, func, format, args);
    errno = saved;
}

} // namespace

Syslog::Syslog(const char* identity) {
    ident = identity;
    // The journal takes the identity from here; the library's own default lies in argv[0], which children overwrite.
    program_invocation_short_name = ident.data();
}

Syslog::~Syslog() = default;

DebugLevel Syslog::debugLevel() { return static_cast<DebugLevel>(level.load()); }

bool Syslog::isDebugLevel(const DebugLevel& value) { return debugLevel() == value; }

void Syslog::setDebugLevel(const DebugLevel& value) { level = static_cast<int>(value); }

void Syslog::setDebugLevel(const std::string& word) {
    info("%s: level: %s", "setDebugLevel", word.c_str());
    if (word == "debug") {
        setDebugLevel(DebugLevel::Debug);
    } else if (word == "info") {
        setDebugLevel(DebugLevel::Info);
    } else if (word == "none") {
        setDebugLevel(DebugLevel::None);
    } else {
        error("%s: unknown level: %s", "setDebugLevel", word.c_str());
    }
}

void Syslog::syslogChildOpen() {}

void Syslog::error(const char* format, ...) {
    if (debugLevel() != DebugLevel::Silent) {
        va_list args;
        va_start(args, format);
        print(LOG_ERR, "CODE_LINE=97", "error", format, args);
        va_end(args);
    }
}

void Syslog::warning(const char* format, ...) {
    if (debugLevel() != DebugLevel::Silent) {
        va_list args;
        va_start(args, format);
        print(LOG_WARNING, "CODE_LINE=85", "warning", format, args);
        va_end(args);
    }
}

void Syslog::notice(const char* format, ...) {
    if (debugLevel() != DebugLevel::Silent) {
        va_list args;
        va_start(args, format);
        print(LOG_NOTICE, "CODE_LINE=73", "notice", format, args);
        va_end(args);
    }
}

void Syslog::info(const char* format, ...) {
    if (isDebugLevel(DebugLevel::Debug) || isDebugLevel(DebugLevel::Info)) {
        va_list args;
        va_start(args, format);
        print(LOG_INFO, "CODE_LINE=61", "info", format, args);
        va_end(args);
    }
}

void Syslog::debug(const char* format, ...) {
    if (isDebugLevel(DebugLevel::Debug)) {
        va_list args;
        va_start(args, format);
        print(LOG_DEBUG, "CODE_LINE=49", "debug", format, args);
        va_end(args);
    }
}

void Utils::syslogWaitStatus(int status, const char* func, int pid) {
    if (!Syslog::isDebugLevel(DebugLevel::Debug)) {
        return;
    }
    if (WIFEXITED(status)) {
        Syslog::debug("%s: child ended, pid: %d, exit code: %d", func, pid, WEXITSTATUS(status));
    } else if ((status & 0x7f) == 0x7f) {
        Syslog::debug("%s: child ended, pid: %d, status: %d", func, pid, status);
    } else {
        Syslog::debug("%s: child ended, pid: %d, killed by signal: %d", func, pid, WTERMSIG(status));
    }
}

void Utils::syslogErrno(const char* func, const char* call, int code) {
    Syslog::error("%s: %s failed, error: %s, code: %d", func, call, std::strerror(code), code);
}

} // namespace Vard
