// The table: a row for each kind of fault, with the function that injects it and what came of it.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace Soak {

struct World;

/// One kind. `inject` does it, waits while it lasts and undoes it; it throws when the service did not do what it should
/// in the face of it, or when the fault could not be made. Called on the main thread alone.
struct Fault {
    std::string name;
    std::function<void(World&)> inject;
    bool endsService = false; ///< by design: everything must be up again at once
    bool scarce = false; ///< sessions that begin meanwhile may go again: their own programs are short of something too
    std::string leftOut = {}; ///< why this build cannot have it

    int injected = 0;
    int survived = 0;
    int lost = 0; ///< sessions that no fault was aimed at
    int left = 0; ///< found when all was to be gone
    int refused = 0; ///< logins; no failure: a full machine may refuse
    int broken = 0; ///< whatever else must not be
    std::set<unsigned> victims = {}; ///< users that it hit since the last rest
    bool recent = false; ///< injected since the last rest
};

std::vector<Fault> childFaults(); ///< the service's children, the service, its bus
std::vector<Fault> squatterFaults(); ///< ordinary accounts: displays' names, a home that never answers
std::vector<Fault> garbageFaults(); ///< over the bus and in the configuration
std::vector<Fault> scarcityFaults(); ///< a machine that is short of something, and the clock

/// Counts what happens, charged to the kind that came last. Any thread may call it.
class Table {
public:
    Table();

    /// The kinds that can be injected and whose names contain the text.
    [[nodiscard]] std::vector<size_t> matching(const std::string& text) const;
    /// Injects a kind; what happens from now on is charged to it. Main thread only.
    void inject(World& world, size_t kind);
    /// The user with that id is the one whom the present fault hits.
    void victim(unsigned uid);
    /// One more; with a text it is a failure, and told.
    void count(int Fault::*what, const std::string& failure = {});
    /// Something is left behind: charged to the kinds that hit its user since the last rest, or else to all since.
    void left(const std::string& what, unsigned uid);
    /// All is clean: what is found later has come of later faults.
    void rested();
    /// Prints it; true when nothing in it is a failure.
    [[nodiscard]] bool print(unsigned long seed);

private:
    void begin(size_t kind);
    void say(const std::string& what) const;

    std::mutex mutex_;
    std::vector<Fault> rows_;
    size_t now_ = 0;
    bool failed_ = false;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace Soak
