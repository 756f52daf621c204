// The subcommand that looks at the machine.
#include "check/look_process.h"
#include "commands.h"
#include "failure.h"
#include "json.h"
#include "terminal_text.h"

#include <unistd.h>

#include <array>
#include <iomanip>
#include <iostream>

namespace Vardctl {

namespace {

constexpr std::array<Check, 18> checks{{{"configuration", lookAtConfiguration},
                                        {"programs", lookAtPrograms},
                                        {"published", lookAtPublished},
                                        {"pam", lookAtPam},
                                        {"groups", lookAtGroups},
                                        {"xserver", lookAtXServer},
                                        {"hash", lookAtHashTool},
                                        {"notices", lookAtNotices},
                                        {"unit", lookAtUnit},
                                        {"bus", lookAtBus},
                                        {"sessions", lookAtSessions},
                                        {"port", lookAtPort},
                                        {"certificate", lookAtCertificate},
                                        {"processes", lookAtProcesses},
                                        {"namespaces", lookAtNamespaces},
                                        {"audit", lookAtAudit},
                                        {"space", lookAtSpace},
                                        {"clock", lookAtClock}}};

constexpr int statusWidth = 9;
constexpr int checkWidth = 15;

void print(const Json::Value& finding) {
    std::cout << std::left << std::setw(statusWidth) << finding["status"].asString() << std::setw(checkWidth)
              << finding["check"].asString() << harmless(finding["found"].asString()) << '\n';
    if (const auto remedy = finding["remedy"].asString(); !remedy.empty()) {
        std::cout << std::setw(statusWidth + checkWidth) << ""
                  << "-> " << harmless(remedy) << '\n';
    }
    std::cout.flush(); // the next look may take its time
}

} // namespace

void checkMachine(const Options& options) {
    if (::geteuid() != 0) {
        throw Failure(ExitCode::denied, "check: access denied; this may be done by root alone");
    }
    goOnAlone();
    const Subject subject{std::filesystem::absolute(options.configuration),
                          options.configuration != Options().configuration};
    Json::Value all(Json::arrayValue);
    unsigned errors = 0;
    for (const auto& check : checks) {
        for (const auto& finding : carryOut(check, subject)) {
            errors += finding["status"] == "error" ? 1 : 0;
            all.append(finding);
            if (!options.json) {
                print(finding);
            }
        }
    }
    if (options.json) {
        std::cout << jsonLine(all);
    }
    if (errors > 0) {
        throw Failure(ExitCode::failed, "check: errors: " + std::to_string(errors));
    }
}

} // namespace Vardctl
