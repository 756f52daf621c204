// A child that was told to end, and does not.
#include "overdue_child.h"

#include "logger.h"
#include "own_children.h"

namespace Vard {

void OverdueChild::kill(const char* func) {
    Syslog::warning("%s: child did not end, killed, pid: %d", func, process_.pid());
    process_.kill();
    gone_ = Deadline::in(killedGrace);
}

void OverdueChild::killOverdue(const char* func) {
    const auto told = process_.toldToEndFor();
    if (!told && end_ && end_->passed()) {
        process_.terminate();
    }
    if (!gone_ && told && (*told > endGrace || process_.stopped())) {
        kill(func);
    }
}

bool OverdueChild::beyondReach(const char* func) const {
    const bool beyond = gone_ && gone_->passed();
    if (beyond) {
        Syslog::warning("%s: killed child does not end, pid: %d", func, process_.pid());
    }
    return beyond;
}

} // namespace Vard
