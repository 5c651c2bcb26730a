#pragma once
// A sliding window of the last samples: push moves the window forward by the samples pushed.

#include <cstddef>

#include "engine/Types.h"

namespace vrn {

class Buffer {
public:
    // Load time: a cleared, 64-byte aligned window of size samples (alignment 0: plain allocation).
    explicit Buffer(size_t size, size_t alignment = 64);
    virtual ~Buffer();
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    virtual scalar* getData() { return data; }
    virtual size_t getSize() const { return size; }
    virtual size_t getCapacity() const { return capacity; }
    // Audio thread, no allocation: drops the oldest count samples, appends count from in.
    virtual void push(const scalar* in, size_t count);
    virtual void clear();

private:
    scalar* data = nullptr;
    size_t size = 0;
    size_t capacity = 0;
    size_t alignment = 64;
};

}  // namespace vrn
