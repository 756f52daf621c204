// The bounds-checked byte reader, driven by the input itself. A finding means that it hands out bytes beyond its end,
// or moves although it refused.
#include "harness.h"

#include "stream_buf_ref.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <vector>

namespace {

using Reader = Vard::StreamBufRef;

struct Number {
    size_t width;
    void (*read)(const Reader& reader);
};

constexpr std::array numbers{
    Number{1, [](const Reader& r) { r.getInt8(); }},    Number{2, [](const Reader& r) { r.getIntLE16(); }},
    Number{2, [](const Reader& r) { r.getIntBE16(); }}, Number{4, [](const Reader& r) { r.getIntLE32(); }},
    Number{4, [](const Reader& r) { r.getIntBE32(); }}, Number{8, [](const Reader& r) { r.getIntLE64(); }},
    Number{8, [](const Reader& r) { r.getIntBE64(); }},
};

/// Reads in one way and answers how many bytes are to be gone afterwards.
size_t step(const Reader& reader, size_t what, size_t length) {
    if (what < numbers.size()) {
        numbers[what].read(reader);
        return numbers[what].width;
    }
    if (what == numbers.size()) {
        Fuzz::expect(reader.peek() == *reader.data());
        return 0;
    }
    what % 2 == 0 ? reader.skip(length) : Fuzz::expect(reader.getBytes(length).size() == length);
    return length;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<uint8_t> bytes(data, data + size); // of exactly that size, so that a byte beyond is noticed
    const Reader reader(bytes.data(), bytes.size());
    for (size_t i = 0; i + 1 < std::min<size_t>(size, 64); i += 2) {
        // Now and then a length near the end of all numbers, where sums run over.
        const size_t length = data[i + 1] < 250 ? data[i + 1] : SIZE_MAX - (255U - data[i + 1]);
        const size_t before = reader.last();
        try {
            const size_t taken = step(reader, data[i] % 10, length);
            Fuzz::expect(taken <= before && reader.last() == before - taken);
        } catch (const std::logic_error&) { // invalid_argument or out_of_range
            Fuzz::expect(reader.last() == before);
        }
        Fuzz::expect(reader.data() + reader.last() == bytes.data() + bytes.size());
    }
    return 0;
}
