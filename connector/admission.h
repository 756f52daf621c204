// Who may be here without having shown a password.
#pragma once

#include "network.h"

#include <list>
#include <map>
#include <unordered_map>

namespace Doors {

/// So many that wait, from one neighbour and in all. None is turned away for want of a place: the one that has waited
/// longest goes, of the same neighbour or of the one that has most. Whoever means it needs his place for a moment only.
class Crowd {
    struct Member {
        Address from;
        std::function<void()> leave;
    };

public:
    /// A place in the crowd, given back in the end. The crowd must outlive it.
    class Place {
    public:
        Place() = default;
        /// Of a member; see enter().
        Place(Crowd& crowd, std::list<Member>::iterator member) : crowd_(&crowd), member_(member) {}
        ~Place() { giveBack(); }
        Place(Place&& other) noexcept : crowd_(std::exchange(other.crowd_, nullptr)), member_(other.member_) {}
        Place& operator=(Place&& other) noexcept;
        /// Gives it back now.
        void giveBack();

    private:
        Crowd* crowd_ = nullptr;
        std::list<Member>::iterator member_;
    };

    /// Both at least 1.
    Crowd(size_t perNeighbour, size_t total) : perNeighbour_(perNeighbour), total_(total) {}

    /// Takes a place. `leave` is called, at most once, when it has to be left to another; it gives the place back.
    [[nodiscard]] Place enter(const Address& address, std::function<void()> leave);
    /// How many there are.
    [[nodiscard]] size_t size() const { return members_.size(); }

private:
    void makeRoom(const Address& from);
    void sendAway(const Address& from);

    size_t perNeighbour_;
    size_t total_;
    std::list<Member> members_; ///< in the order of their coming
    std::map<Address, size_t> count_;
};

/// So many new ones a second, from one neighbour and in all; three seconds' worth may come at once. A neighbour that
/// comes too often costs the others nothing.
class Arrivals {
public:
    using Clock = std::chrono::steady_clock;

    /// So many a second; both at least 1.
    Arrivals(size_t perNeighbour, size_t total);
    /// Whether this one may come in.
    bool admit(const Address& address, Clock::time_point now = Clock::now());

private:
    /// When the arrivals so far would have come, had they kept their distance.
    struct Pace {
        Clock::duration distance;
        [[nodiscard]] bool allows(Clock::time_point used, Clock::time_point now) const;
        void use(Clock::time_point& used, Clock::time_point now) const { used = std::max(used, now) + distance; }
    };
    struct Hash {
        size_t operator()(const Address& address) const { return std::hash<std::string>()(address.to_string()); }
    };
    void forgetIdle(Clock::time_point now);

    Pace each_;
    Pace all_;
    Clock::time_point allUsed_{};
    std::unordered_map<Address, Clock::time_point, Hash> used_;
    size_t cleanAt_ = 256;
};

} // namespace Doors
