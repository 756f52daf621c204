// Bounds for texts that come from outside.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Vard {

/// How many bytes of `text` lie within its first `bytes` without a UTF-8 character cut in two; what is no valid UTF-8
/// is cut at `bytes`. Pure; also in a forked child.
size_t boundedLength(std::string_view text, size_t bytes) noexcept;

/// The text itself, or its beginning of that length.
std::string bounded(const std::string& text, size_t bytes);

} // namespace Vard
