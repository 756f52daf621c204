// All that the faults meet: the service, its users, an account that squats.
#pragma once

#include "keeper.h"
#include "table.h"
#include "user.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace Soak {

/// The machine. The faults run on the main thread alone.
struct World {
    explicit World(unsigned long seed);
    ~World() { users.clear(); }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// A number from the seed's sequence, both ends included.
    int pick(int low, int high) { return std::uniform_int_distribution(low, high)(random); }
    /// Any element of a list, by the seed's sequence.
    template <typename List>
    const auto& oneOf(const List& list) {
        return *std::next(std::begin(list), pick(0, static_cast<int>(std::size(list)) - 1));
    }
    /// Sleeps for a time from the seed's sequence, in milliseconds.
    void pause(int low, int high);
    /// Lets every user log out, waits until nothing is left, and charges what is. Then they log in again.
    void rest();
    /// Stops the service for good and looks once more.
    void finish();

    std::mt19937 random;
    Table table;
    std::atomic<bool> resting = false; ///< users log out and stay out
    std::atomic<bool> scarce = false; ///< the machine is short of something: sessions that begin now may go
    Test::Account squatter{"squatter"};
    std::unique_ptr<Keeper> keeper;
    std::vector<std::unique_ptr<User>> users;

private:
    static void makeFiles();
    [[nodiscard]] std::set<std::string> belongings() const;
    [[nodiscard]] bool quiet() const;
    void chargeLeft(std::chrono::seconds limit);

    std::set<std::string> atRest_;
};

/// A user taken by the seed for a fault: the own thread waits meanwhile.
class Victim {
public:
    explicit Victim(World& world);
    User* operator->() { return &user_; }
    [[nodiscard]] std::string home() const { return user_.account().home(); }

private:
    User& user_;
    std::unique_lock<std::mutex> lock_;
};

} // namespace Soak
