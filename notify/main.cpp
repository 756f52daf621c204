// Shows a notice to the user of a session: through the desktop's notification service where one runs, else in a window.
#include "desktop_notice.h"
#include "window.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <stdexcept>

namespace {

constexpr int badArguments = 2;
constexpr unsigned longestLife = 60; // seconds

constexpr const char* usage =
    "usage: vard_notify --header QUOTED --message QUOTED --level 0-255\n"
    "  The texts stand between double quotation marks, with a backslash before every\n"
    "  quotation mark and backslash in them. Level 0 is low, 1 normal, 2 and above critical.\n";

std::optional<Vard::Notice> readNotice(const std::vector<std::string>& args) {
    try {
        return Vard::parseNotice(args);
    } catch (const std::invalid_argument& err) {
        std::fprintf(stderr, "vard_notify: %s (--help shows the usage)\n", err.what());
        return std::nullopt;
    }
}

int show(const Vard::Notice& notice) {
    if (Vard::showOnDesktop(notice)) {
        return 0;
    }
    try {
        Vard::showWindow(notice);
        return 0;
    } catch (const std::runtime_error& err) {
        std::fprintf(stderr, "vard_notify: %s\n", err.what());
        return 1;
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + std::min(argc, 1), argv + argc);
    if (args == std::vector<std::string>{"--help"}) {
        std::fputs(usage, stdout);
        return 0;
    }
    const auto notice = readNotice(args);
    if (!notice) {
        return badArguments;
    }
    ::alarm(longestLife); // an X server that has been stopped would hold us for ever, and the service waits for our end
    return show(*notice);
}
