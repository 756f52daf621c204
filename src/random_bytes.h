// Random bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vard::Utils {

/// `count` random bytes; within each block of 256 no value repeats.
std::vector<uint8_t> randomBytes(size_t count);

} // namespace Vard::Utils
