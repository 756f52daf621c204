// The looks at the machine, one for each check. Each runs in a process of its own, so that one that hangs or is killed
// costs itself only; what it throws is a finding, too.
#pragma once

#include "findings.h"
#include "json_config.h"

#include <filesystem>

namespace Vardctl {

/// What is looked at.
struct Subject {
    std::filesystem::path file; ///< the configuration, absolute
    bool proposed = false; ///< it is not where the service reads it yet

    /// What the file says; nothing, so that every default counts, when it cannot be used.
    [[nodiscard]] Vard::JsonConfig settings() const;
};

/// The configuration file itself.
void lookAtConfiguration(const Subject& subject, const Findings& findings);
/// The programs that it names.
void lookAtPrograms(const Subject& subject, const Findings& findings);
/// The list of published programs.
void lookAtPublished(const Subject& subject, const Findings& findings);
/// The hash tool, at work.
void lookAtHashTool(const Subject& subject, const Findings& findings);
/// The program that shows notices, without a display.
void lookAtNotices(const Subject& subject, const Findings& findings);
/// The PAM service of the sessions.
void lookAtPam(const Subject& subject, const Findings& findings);
/// The X server's configuration, and a server that is started.
void lookAtXServer(const Subject& subject, const Findings& findings);
/// The groups that the bus policy and the X servers' sockets name.
void lookAtGroups(const Subject& subject, const Findings& findings);
/// The bus, its policy, the service on it.
void lookAtBus(const Subject& subject, const Findings& findings);
/// The sessions, each of which must have a hash line.
void lookAtSessions(const Subject& subject, const Findings& findings);
/// The service's unit.
void lookAtUnit(const Subject& subject, const Findings& findings);
/// Whether users see each other's processes.
void lookAtProcesses(const Subject& subject, const Findings& findings);
/// The namespaces of the X servers.
void lookAtNamespaces(const Subject& subject, const Findings& findings);
/// The kernel's audit log.
void lookAtAudit(const Subject& subject, const Findings& findings);
/// Room on the disks.
void lookAtSpace(const Subject& subject, const Findings& findings);
/// The machine's time.
void lookAtClock(const Subject& subject, const Findings& findings);
/// The connector's port.
void lookAtPort(const Subject& subject, const Findings& findings);
/// The connector's certificate.
void lookAtCertificate(const Subject& subject, const Findings& findings);

} // namespace Vardctl
