// Keeps the service running as its unit would.
#pragma once

#include "table.h"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace Soak {

/// The running service: started again whenever it ends, with all that was left of it ended first. Any thread may ask.
class Keeper {
public:
    /// Starts it and waits until it answers.
    explicit Keeper(Table& table);
    ~Keeper();
    Keeper(const Keeper&) = delete;
    Keeper& operator=(const Keeper&) = delete;

    [[nodiscard]] int pid() const { return pid_; }
    /// Grows with each start.
    [[nodiscard]] int generation() const { return generation_; }
    /// True when the generation's end was a fault's purpose.
    [[nodiscard]] bool endedAsAsked(int generation) const { return generation <= askedUpTo_; }
    /// While true, ends of the service are what a fault is for.
    void allowEnds(bool allowed) { endsAllowed_ = allowed; }
    /// Waits until the service answers on a fresh connection; false after the limit.
    [[nodiscard]] static bool answers(std::chrono::seconds limit = std::chrono::seconds(30));
    /// Waits for the generation after that one; throws when it does not come up.
    void comeBack(int generation) const;
    /// Kills the service and waits for the next one; throws when that does not come up.
    void killService() const;
    /// Stops it in order, for good; false when it did not end with 0 in the unit's time.
    bool stop();
    /// All that comes of the service, without itself: a line for each process of uid, pid, parent, state and name.
    [[nodiscard]] std::string family() const;

    static constexpr const char* configFile = "/etc/vard/soak.json";

private:
    void spawn();
    void keep();
    void endFamily() const;

    Table& table_;
    std::atomic<int> pid_ = -1;
    std::atomic<int> generation_ = 0;
    std::atomic<int> askedUpTo_ = 0;
    std::atomic<bool> endsAllowed_ = false;
    std::atomic<bool> stopping_ = false;
    int status_ = -1;
    std::thread thread_;
};

} // namespace Soak
