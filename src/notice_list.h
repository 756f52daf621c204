// The notification programs that run in a session.
#pragma once

#include "process_handle.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <list>
#include <mutex>

namespace Vard {

/// Those of one kind, so that no more than a few run at once. Any thread. The child list's lock may be taken under the
/// one of this list, which is held over the start of a notice.
class NoticeList {
public:
    /// Starts one more with `start` unless `most` run already; false then. Throws what `start` throws.
    bool add(size_t most, const std::function<ProcessHandle()>& start) {
        const std::scoped_lock lock(mutex_);
        std::erase_if(shown_, [](const ProcessHandle& notice) { return !notice.exists(); });
        if (shown_.size() >= most) {
            return false;
        }
        shown_.push_back(start());
        return true;
    }
    /// Tells all to end.
    void end() {
        const std::scoped_lock lock(mutex_);
        std::ranges::for_each(shown_, &ProcessHandle::terminate);
    }

private:
    std::mutex mutex_;
    std::list<ProcessHandle> shown_;
};

} // namespace Vard
