#pragma once
// Aligned sample arrays for the vector kernels.  Load time only: allocation is never on the
// steady-state audio path.

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

#include "engine/Types.h"

namespace vrn {

constexpr size_t kSampleAlignment = 64;

inline scalar* allocateSamples(size_t count, size_t alignment = kSampleAlignment) {
    if (count == 0) count = 1;
    if (alignment == 0) return new scalar[count];
    size_t bytes = (count * sizeof(scalar) + alignment - 1) / alignment * alignment;
    void* memory = std::aligned_alloc(alignment, bytes);
    if (!memory) throw std::bad_alloc();
    return static_cast<scalar*>(memory);
}

inline void freeSamples(scalar* data, size_t alignment = kSampleAlignment) {
    if (!data) return;
    if (alignment == 0)
        delete[] data;
    else
        std::free(data);
}

}  // namespace vrn
