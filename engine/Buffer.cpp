#include "engine/Buffer.h"

#include <algorithm>
#include <cstring>

#include "engine/AlignedMemory.h"
#include "engine/Exceptions.h"

namespace vrn {

Buffer::Buffer(size_t bufferSize, size_t bufferAlignment) : alignment(bufferAlignment) {
    if (bufferSize == 0) throw InvalidArgumentException("Buffer size cannot be less than 1. size=" + toString(bufferSize));
    size = capacity = bufferSize;
    data = allocateSamples(capacity, alignment);
    std::fill(data, data + capacity, 0.0f);
}

Buffer::~Buffer() { freeSamples(data, alignment); }

void Buffer::push(const scalar* in, size_t count) {
    if (count >= capacity) {
        std::memcpy(data, in + (count - capacity), capacity * sizeof(scalar));
        return;
    }
    std::memmove(data, data + count, (capacity - count) * sizeof(scalar));
    std::memcpy(data + capacity - count, in, count * sizeof(scalar));
}

void Buffer::clear() {
    std::fill(data, data + capacity, 0.0f);
    size = capacity;
}

}  // namespace vrn
