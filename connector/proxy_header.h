// What a balancer says of the client that it hands on: the PROXY protocol, version 2.
#pragma once

#include "loop.h"

#include <optional>
#include <string>

namespace Doors {

inline constexpr size_t proxyHeaderBegin = 16; ///< so many bytes say how long it is
inline constexpr size_t longestProxyHeader = 1024; ///< longer ones are none

/// The length of the whole header that begins so, from those bytes on; nothing when it is none, or too long.
std::optional<size_t> proxyHeaderLength(const std::string& begin);

/// The client's address by a header of that length. `own` is the balancer's, which counts for what the balancer does on
/// its own account. Nothing when it is of no family that we know.
std::optional<Address> proxiedAddress(const std::string& header, const Address& own);

} // namespace Doors
