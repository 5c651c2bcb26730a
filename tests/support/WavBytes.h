#pragma once
// Builds WAV files byte by byte for the reader tests, independently of any WAV library.

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace wavbytes {

using Bytes = std::vector<unsigned char>;

inline void put16(Bytes& b, uint32_t v) {
    b.push_back(static_cast<unsigned char>(v & 0xff));
    b.push_back(static_cast<unsigned char>((v >> 8) & 0xff));
}
inline void put32(Bytes& b, uint32_t v) {
    put16(b, v & 0xffff);
    put16(b, v >> 16);
}
inline void put64(Bytes& b, uint64_t v) {
    put32(b, static_cast<uint32_t>(v));
    put32(b, static_cast<uint32_t>(v >> 32));
}
// Byte by byte: GCC 12's -O3 misreads a range insert into a small vector as an overflow.
inline void putText(Bytes& b, const char* text) {
    for (; *text; ++text) b.push_back(static_cast<unsigned char>(*text));
}
inline void append(Bytes& b, const Bytes& more) { b.insert(b.end(), more.begin(), more.end()); }

// A chunk: id, size and payload; pad adds the byte that word-aligns an odd payload.
inline Bytes chunk(const char* id, const Bytes& payload, bool pad = false) {
    Bytes b;
    putText(b, id);
    put32(b, static_cast<uint32_t>(payload.size()));
    append(b, payload);
    if (pad && (payload.size() & 1)) b.push_back(0);
    return b;
}

// The 16-byte body of a plain format chunk.
inline Bytes formatBody(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t bits) {
    Bytes b;
    put16(b, tag);
    put16(b, channels);
    put32(b, rate);
    put32(b, rate * channels * bits / 8);
    put16(b, static_cast<uint16_t>(channels * bits / 8));
    put16(b, bits);
    return b;
}

// The 40-byte body of an extensible format chunk whose sub-format GUID starts with subTag.
inline Bytes extensibleBody(uint16_t subTag, uint16_t channels, uint32_t rate, uint16_t bits, uint16_t extSize = 22) {
    Bytes b = formatBody(65534, channels, rate, bits);
    put16(b, extSize);
    put16(b, bits);  // valid bits
    put32(b, 0);     // channel mask
    put16(b, subTag);
    const unsigned char guidTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                        0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
    b.insert(b.end(), guidTail, guidTail + 14);
    return b;
}

// "RIFF" size "WAVE" followed by the chunks.
inline Bytes riff(const Bytes& chunks) {
    Bytes b;
    putText(b, "RIFF");
    put32(b, static_cast<uint32_t>(chunks.size() + 4));
    putText(b, "WAVE");
    append(b, chunks);
    return b;
}

// A minimal file: the format chunk, then the data chunk.
inline Bytes wav(const Bytes& format, const Bytes& samples) {
    Bytes chunks = chunk("fmt ", format);
    append(chunks, chunk("data", samples));
    return riff(chunks);
}

inline void writeFile(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace wavbytes
