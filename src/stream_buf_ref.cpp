// A bounds-checked reader over bytes that somebody else owns. Programs built on these rooms are to find it here;
// nothing of the service calls it.
#include "stream_buf_ref.h"

#include "logger.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace Vard {

namespace {

void require(const char* func, size_t last, size_t len) {
    if (len > last) {
        Syslog::error("%s: incorrect len, last: %u, len: %u", func, static_cast<unsigned>(last),
                      static_cast<unsigned>(len));
        throw std::invalid_argument(func);
    }
}

} // namespace

StreamBufRef::StreamBufRef(const void* ptr, size_t len) {
    if (ptr != nullptr) {
        reset(ptr, len);
    }
}

StreamBufRef::StreamBufRef(StreamBufRef&& other) noexcept
    : pos_(std::exchange(other.pos_, nullptr)), end_(std::exchange(other.end_, nullptr)) {}

StreamBufRef& StreamBufRef::operator=(StreamBufRef&& other) noexcept {
    if (this != &other) {
        pos_ = std::exchange(other.pos_, nullptr);
        end_ = std::exchange(other.end_, nullptr);
    }
    return *this;
}

void StreamBufRef::reset(const void* ptr, size_t len) {
    pos_ = static_cast<const uint8_t*>(ptr);
    end_ = pos_ + len;
}

void StreamBufRef::getRaw(void* dst, size_t len) const {
    require("getRaw", last(), len);
    std::copy_n(pos_, len, static_cast<uint8_t*>(dst));
    pos_ += len;
}

std::vector<uint8_t> StreamBufRef::getBytes(size_t len) const {
    require("getBytes", last(), len);
    std::vector<uint8_t> result(pos_, pos_ + len);
    pos_ += len;
    return result;
}

void StreamBufRef::skip(size_t len) const {
    require("skip", last(), len);
    pos_ += len;
}

size_t StreamBufRef::last() const { return static_cast<size_t>(end_ - pos_); }

uint8_t StreamBufRef::peek() const {
    if (pos_ == end_) {
        Syslog::error("%s: %s", "peek", "end stream");
        throw std::out_of_range("peek");
    }
    return *pos_;
}

const uint8_t* StreamBufRef::data() const { return pos_; }

template <typename Int>
Int StreamBufRef::getLE() const {
    std::array<uint8_t, sizeof(Int)> bytes{};
    getRaw(bytes.data(), bytes.size());
    uint64_t value = 0;
    for (size_t i = bytes.size(); i > 0; --i) {
        value = value << 8 | bytes[i - 1];
    }
    return static_cast<Int>(value);
}

template <typename Int>
Int StreamBufRef::getBE() const {
    std::array<uint8_t, sizeof(Int)> bytes{};
    getRaw(bytes.data(), bytes.size());
    uint64_t value = 0;
    for (const auto byte : bytes) {
        value = value << 8 | byte;
    }
    return static_cast<Int>(value);
}

uint8_t StreamBufRef::getInt8() const { return getLE<uint8_t>(); }
uint16_t StreamBufRef::getIntLE16() const { return getLE<uint16_t>(); }
uint32_t StreamBufRef::getIntLE32() const { return getLE<uint32_t>(); }
uint64_t StreamBufRef::getIntLE64() const { return getLE<uint64_t>(); }
uint16_t StreamBufRef::getIntBE16() const { return getBE<uint16_t>(); }
uint32_t StreamBufRef::getIntBE32() const { return getBE<uint32_t>(); }
uint64_t StreamBufRef::getIntBE64() const { return getBE<uint64_t>(); }

} // namespace Vard
