// Journal prints with one process-wide level.
#include "logger.h"

#include "secret.h"
#include "text.h"

#include <sys/wait.h>
#include <systemd/sd-journal.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace Vard {

std::string ident;

std::atomic<int> Syslog::level{static_cast<int>(DebugLevel::Info)};

namespace {

// With its field name no longer than what readers of the journal show.
constexpr size_t largestLine = (64 << 10) - sizeof "MESSAGE=";
constexpr size_t markRoom = 48;

// Marks a line that did not fit as cut, where its last whole character ends; `whole` is its length in full.
void markCut(char* line, size_t whole) {
    const size_t kept = boundedLength({line, largestLine}, largestLine - markRoom);
    std::snprintf(line + kept, markRoom, " [cut, %zu bytes]", whole);
}

/// A forked child's last line, kept back; the child has one thread.
struct KeptLine {
    bool keeps = false;
    int priority = 0;
    std::array<char, 1024> text{};
};
KeptLine kept;

void write(int priority, const char* line, const char* func, const char* text) {
    // The location fields name the logger itself; the caller stands in the message.
    sd_journal_print_with_location(priority, "CODE_FILE=src/logger", line, func, "%s", text);
}

// The journal library makes its own copy on the stack, of whatever length. A request's text may hold a password, so
// that nothing of the line stays here.
void print(int priority, const char* line, const char* func, const char* format, va_list args) {
    const int saved = errno;
    std::array<char, largestLine + 1> text; // NOLINT(*-member-init): 64 KiB for each line
    const int whole = std::vsnprintf(text.data(), text.size(), format, args);
    if (whole > static_cast<int>(largestLine)) {
        markCut(text.data(), static_cast<size_t>(whole));
    }
    if (whole >= 0) {
        if (kept.keeps) {
            kept.priority = priority;
            kept.text[std::string_view(text.data()).copy(kept.text.data(), kept.text.size() - 1)] = '\0';
        } else {
            write(priority, line, func, text.data());
        }
        Utils::wipe(text.data(), std::min(static_cast<size_t>(whole) + 1, text.size()));
    }
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

void Syslog::holdBack() { kept = {true, 0, {}}; }

void Syslog::release() {
    kept.keeps = false;
    if (kept.text[0] != '\0') {
        write(kept.priority, "CODE_LINE=97", "error", kept.text.data());
        kept.text[0] = '\0';
    }
}

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
