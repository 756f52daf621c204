// A bounds-checked reader over bytes that somebody else owns. Programs built on these rooms are to find it here;
// nothing of the service calls it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Vard {

/// Reads from a borrowed buffer, which the caller keeps alive. The reading operations are const yet advance the
/// position. A read past the end is logged, throws (std::invalid_argument("getRaw") unless said otherwise) and moves
/// nothing.
class StreamBufRef {
public:
    /// An empty reader.
    StreamBufRef() = default;
    /// A null pointer gives an empty reader whatever the length.
    StreamBufRef(const void* ptr, size_t len);
    /// Goes on where the other was, which is empty afterwards; so does the assignment.
    StreamBufRef(StreamBufRef&& other) noexcept;
    StreamBufRef& operator=(StreamBufRef&& other) noexcept;
    StreamBufRef(const StreamBufRef&) = delete;
    StreamBufRef& operator=(const StreamBufRef&) = delete;
    ~StreamBufRef() = default;

    /// Reads these `len` bytes from now on; a null pointer must come with a length of zero.
    void reset(const void* ptr, size_t len);

    /// Copies the next `len` bytes to `dst`.
    void getRaw(void* dst, size_t len) const;
    /// The next `len` bytes. Throws std::invalid_argument("getBytes").
    std::vector<uint8_t> getBytes(size_t len) const;
    /// Passes over `len` bytes. Throws std::invalid_argument("skip").
    void skip(size_t len) const;
    /// Bytes left.
    size_t last() const;
    /// The next byte, not consumed. Throws std::out_of_range("peek") at the end.
    uint8_t peek() const;
    /// Where the next byte is; last() bytes may be read there.
    const uint8_t* data() const;

    /// The next byte.
    uint8_t getInt8() const;
    /// The next number of so many bits, its least significant byte first.
    uint16_t getIntLE16() const;
    uint32_t getIntLE32() const;
    uint64_t getIntLE64() const;
    /// The same, its most significant byte first.
    uint16_t getIntBE16() const;
    uint32_t getIntBE32() const;
    uint64_t getIntBE64() const;

private:
    template <typename Int>
    Int getLE() const;
    template <typename Int>
    Int getBE() const;

    mutable const uint8_t* pos_ = nullptr;
    const uint8_t* end_ = nullptr;
};

} // namespace Vard
