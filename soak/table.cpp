// The table: a row for each kind of fault, with the function that injects it and what came of it.
#include "table.h"

#include "world.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace Soak {

Table::Table() : rows_{{"(nothing)", [](World&) {}}} {
    for (const auto& group : {childFaults(), squatterFaults(), garbageFaults(), scarcityFaults()}) {
        rows_.insert(rows_.end(), group.begin(), group.end());
    }
}

std::vector<size_t> Table::matching(const std::string& text) const {
    std::vector<size_t> result;
    for (size_t kind = 1; kind < rows_.size(); ++kind) {
        if (rows_[kind].leftOut.empty() && rows_[kind].name.find(text) != std::string::npos) {
            result.push_back(kind);
        }
    }
    return result;
}

void Table::inject(World& world, size_t kind) {
    const Fault& fault = rows_[kind];
    begin(kind);
    const int generation = world.keeper->generation();
    world.keeper->allowEnds(fault.endsService);
    world.scarce = fault.scarce;
    try {
        fault.inject(world);
        if (!Keeper::answers()) {
            world.keeper->allowEnds(true);
            world.keeper->killService(); // as an administrator would
            throw std::runtime_error("the service did not answer");
        }
        if (fault.endsService || world.keeper->generation() == generation) {
            count(&Fault::survived);
        }
    } catch (const std::exception& err) {
        count(&Fault::broken, err.what());
    }
    world.scarce = false;
    world.keeper->allowEnds(false);
}

void Table::begin(size_t kind) {
    const std::scoped_lock lock(mutex_);
    now_ = kind;
    rows_[kind].recent = true;
    rows_[kind].injected++;
    say("begins");
}

void Table::say(const std::string& what) const {
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start_;
    std::printf("%8.1f s  %s: %s\n", time.count(), rows_[now_].name.c_str(), what.c_str());
    std::fflush(stdout);
}

void Table::victim(unsigned uid) {
    const std::scoped_lock lock(mutex_);
    rows_[now_].victims.insert(uid);
    say("hits user " + std::to_string(uid));
}

void Table::count(int Fault::*what, const std::string& failure) {
    const std::scoped_lock lock(mutex_);
    ++(rows_[now_].*what);
    if (!failure.empty()) {
        failed_ = true;
        say((what == &Fault::lost ? "SESSION LOST " : "BROKEN ") + failure);
    }
}

void Table::left(const std::string& what, unsigned uid) {
    const std::scoped_lock lock(mutex_);
    failed_ = true;
    const bool known = std::ranges::any_of(rows_, [&](const auto& row) { return row.victims.contains(uid); });
    rows_[0].recent = std::ranges::none_of(rows_, &Fault::recent);
    std::string kinds;
    for (auto& row : rows_) {
        if (known ? row.victims.contains(uid) : row.recent) {
            row.left++;
            kinds += (kinds.empty() ? "" : ", ") + row.name;
        }
    }
    say("LEFT BEHIND " + what + " (of: " + kinds + ")");
}

void Table::rested() {
    const std::scoped_lock lock(mutex_);
    now_ = 0;
    for (auto& row : rows_) {
        row.recent = false;
        row.victims.clear();
    }
}

bool Table::print(unsigned long seed) {
    const std::scoped_lock lock(mutex_);
    std::printf("\n%-38s %8s %8s %12s %11s %15s\n", "fault", "injected", "survived", "others lost", "left behind",
                "logins refused");
    for (const auto& row : rows_) {
        if (!row.leftOut.empty()) {
            std::printf("%-38s left out: %s\n", row.name.c_str(), row.leftOut.c_str());
            continue;
        }
        std::printf("%-38s %8d %8d %12d %11d %15d\n", row.name.c_str(), row.injected, row.survived, row.lost, row.left,
                    row.refused);
        failed_ = failed_ || row.survived < row.injected;
    }
    std::printf("seed %lu: %s\n", seed, failed_ ? "FAILED" : "passed");
    return !failed_;
}

} // namespace Soak
