#pragma once
// Reads a fuzzer's bytes as a stream of small numbers; past the end every read gives 0.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace fuzz {

class Input {
public:
    Input(const uint8_t* data, size_t size) : data(data), size(size) {}

    bool empty() const { return at >= size; }
    uint8_t byte() { return at < size ? data[at++] : 0; }
    uint16_t u16() { return static_cast<uint16_t>(byte() | (byte() << 8)); }
    uint32_t u32() { return static_cast<uint32_t>(u16()) | (static_cast<uint32_t>(u16()) << 16); }
    // Any bit pattern: NaN, infinities and denormals included.
    float anyFloat() {
        const uint32_t bits = u32();
        float value;
        std::memcpy(&value, &bits, sizeof(value));
        return value;
    }
    // Mostly the 0..1 a host sends, sometimes anything at all.
    float parameter() {
        const uint8_t kind = byte();
        if (kind < 200) return static_cast<float>(u16()) / 65535.0f;
        return anyFloat();
    }

private:
    const uint8_t* data;
    size_t size;
    size_t at = 0;
};

}  // namespace fuzz
