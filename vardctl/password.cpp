// A password, from the terminal or from a pipe to the bus and nowhere else.
#include "password.h"

#include "failure.h"
#include "stop_signals.h"
#include "terminal_text.h"

#include <poll.h>
#include <sys/prctl.h>
#include <termios.h>
#include <unistd.h>

#include <cstring>
#include <iostream>

namespace Vardctl {

namespace {

/// Keeps the terminal from showing what is typed, and from suspending the command in that state.
class EchoOff {
public:
    EchoOff() {
        ::tcgetattr(STDIN_FILENO, &before_);
        termios quiet = before_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        quiet.c_lflag |= ECHONL | ICANON;
        quiet.c_cc[VSUSP] = _POSIX_VDISABLE;
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    ~EchoOff() { ::tcsetattr(STDIN_FILENO, TCSADRAIN, &before_); }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

private:
    termios before_{};
};

bool lineComesFirst(const HeldSignals& signals) {
    std::array<pollfd, 2> sources{{{STDIN_FILENO, POLLIN, 0}, {signals.descriptor(), POLLIN, 0}}};
    ::poll(sources.data(), sources.size(), -1);
    return sources[1].revents == 0;
}

} // namespace

Password::Password(const std::string& user) {
    ::prctl(PR_SET_DUMPABLE, 0); // a crash must not write it to a file
    if (::isatty(STDIN_FILENO) != 0) {
        ask(user);
    } else {
        readLine();
    }
    // The hash tool of a session makes no hash line of it: nobody could come in.
    if (text_[0] == '\0') {
        throw Failure(ExitCode::usage,
                      "the password is empty: type it, or write it as the first line to standard input");
    }
}

Password::~Password() { ::explicit_bzero(text_.data(), text_.size()); }

void Password::ask(const std::string& user) {
    const HeldSignals signals;
    const EchoOff quiet;
    std::cerr << "Password for " << harmless(user) << ": " << std::flush;
    const bool came = lineComesFirst(signals);
    if (!came || !readLine()) {
        std::cerr << std::endl; // the terminal shows only a line end that was typed
    }
    if (!came) {
        throw Failure(ExitCode::failed, "interrupted");
    }
}

// False when the input ended before the line did.
bool Password::readLine() {
    size_t length = 0;
    char byte = 0;
    ssize_t count = 0;
    while ((count = ::read(STDIN_FILENO, &byte, 1)) > 0 && byte != '\n') {
        if (byte == '\0' || length + 1 == text_.size()) {
            throw Failure(ExitCode::usage, "the password is too long or holds a zero byte");
        }
        text_[length++] = byte;
    }
    return count > 0;
}

} // namespace Vardctl
