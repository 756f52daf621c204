// Random bytes.
#include "random_bytes.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <random>

namespace Vard::Utils {

// Drawn by permutation, not byte by byte: a cookie never holds a value twice.
std::vector<uint8_t> randomBytes(size_t count) {
    std::array<uint8_t, 256> table{};
    std::iota(table.begin(), table.end(), uint8_t{0});
    std::vector<uint8_t> result;
    while (result.size() < count) {
        std::random_device device;
        std::mt19937 generator(device());
        std::shuffle(table.begin(), table.end(), generator);
        const auto length = static_cast<std::ptrdiff_t>(std::min(count - result.size(), table.size()));
        result.insert(result.end(), table.begin(), table.begin() + length);
    }
    return result;
}

} // namespace Vard::Utils
