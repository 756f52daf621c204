// How long the service waits for the children that it starts for users, and whose children nothing ends.
#include "user_children.h"

#include "logger.h"

#include <algorithm>

namespace Vard {

std::chrono::milliseconds Patience::left(uid_t user, Clock::time_point now) {
    const std::scoped_lock lock(mutex_);
    forget(user, now);
    const auto found = users_.find(user);
    if (found == users_.end()) {
        return usual;
    }
    const auto& record = found->second;
    const Clock::duration left =
        record.offenders.empty() ? std::max<Clock::duration>(usual - record.slow, afterwards) : record.left;
    return std::chrono::floor<std::chrono::milliseconds>(left);
}

void Patience::forget(uid_t user, Clock::time_point now) {
    const auto found = users_.find(user);
    if (found != users_.end() && now - found->second.since >= disgrace) {
        users_.erase(found);
    }
}

void Patience::took(uid_t user, const std::string& name, Clock::duration took, bool killed, Clock::time_point now) {
    const std::scoped_lock lock(mutex_);
    forget(user, now);
    const bool slow = killed || took > quick_;
    const auto known = users_.find(user);
    if (!slow) {
        if (known != users_.end() && known->second.offenders.erase(name) > 0 && known->second.offenders.empty()) {
            users_.erase(known);
        }
        return;
    }
    auto& record = users_.try_emplace(user, Record{now, {}, afterwards, {}}).first->second;
    record.slow += std::max<Clock::duration>(took - quick_, {});
    if (!record.offenders.empty()) {
        record.left -= std::min(took, record.left);
    }
    if (killed || !record.offenders.empty() || record.slow >= usual) {
        record.offenders.insert(name);
        record.since = now;
    }
}

void StuckProcesses::add(uid_t user, const ProcessHandle& process) {
    const std::scoped_lock lock(mutex_);
    processes_.emplace(user, process);
}

void StuckProcesses::forgetEnded() {
    const std::scoped_lock lock(mutex_);
    std::erase_if(processes_, [](const auto& entry) { return !entry.second.exists(); });
}

pid_t StuckProcesses::of(uid_t user) {
    forgetEnded();
    const std::scoped_lock lock(mutex_);
    const auto found = processes_.find(user);
    return found == processes_.end() ? 0 : found->second.pid();
}

std::chrono::milliseconds UserChildren::grant(Patience& patience, uid_t user, const char* func) {
    // Another child would hang where the one before does.
    if (const pid_t held = stuck.of(user); held != 0) {
        Syslog::warning("%s: not run, a process of the user's does not end, uid: %u, pid: %d", func, user, held);
        return {};
    }
    const auto left = patience.left(user);
    if (left.count() == 0) {
        Syslog::warning("%s: not run, earlier ones of the user's had to be killed, uid: %u", func, user);
    }
    return left;
}

void UserChildren::remember(Patience& patience, uid_t user, const char* func, const TimedChild& child) {
    if (child.stuck()) {
        stuck.add(user, child.process());
    }
    patience.took(user, func, child.took(), child.killed());
}

} // namespace Vard
