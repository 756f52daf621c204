// Users log in and out while faults come at random; what the faults did is told at the end.
//
// usage: vard_soak [MINUTES] [--seed N] [--fault TEXT]
#include "world.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

using namespace Soak;
using Clock = std::chrono::steady_clock;

struct Arguments {
    double minutes = 30;
    unsigned long seed = std::random_device{}();
    std::string fault; ///< only kinds whose names contain it
};

Arguments parse(const std::vector<std::string>& words) {
    Arguments result;
    for (size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "--seed") {
            result.seed = std::stoul(words.at(++i));
        } else if (words[i] == "--fault") {
            result.fault = words.at(++i);
        } else {
            result.minutes = std::stod(words[i]);
        }
    }
    return result;
}

// In random order; each kind comes once before any comes again.
void run(World& world, const Arguments& arguments, Clock::time_point end) {
    const auto kinds = world.table.matching(arguments.fault);
    if (kinds.empty()) {
        throw std::runtime_error("no such fault: " + arguments.fault);
    }
    std::vector<size_t> left;
    while (Clock::now() < end) {
        for (int round = world.pick(3, 8); round > 0 && Clock::now() < end; --round) {
            if (left.empty()) {
                left = kinds;
                std::ranges::shuffle(left, world.random);
            }
            world.pause(100, 1000);
            world.table.inject(world, left.back());
            left.pop_back();
        }
        world.rest();
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        const auto arguments = parse({argv + 1, argv + argc});
        const auto length = std::chrono::duration<double, std::ratio<60>>(arguments.minutes);
        const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(length);
        World world(arguments.seed);
        run(world, arguments, end);
        world.finish();
        return world.table.print(arguments.seed) ? 0 : 1;
    } catch (const std::exception& err) {
        std::fprintf(stderr, "soak: %s\n", err.what());
        return 1;
    }
}
