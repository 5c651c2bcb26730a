#pragma once
// Aligned sample arrays for the vector kernels.  Load time only: allocation is never on the
// steady-state audio path.

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#ifdef _WIN32
#include <malloc.h>
#endif

#include "engine/Types.h"

namespace vrn {

constexpr size_t kSampleAlignment = 64;

inline scalar* allocateSamples(size_t count, size_t alignment = kSampleAlignment) {
    if (count == 0) count = 1;
    if (alignment == 0) return new scalar[count];
    size_t bytes = (count * sizeof(scalar) + alignment - 1) / alignment * alignment;
#ifdef _WIN32
    // The Windows C library has no aligned_alloc; its own pair frees with _aligned_free.
    void* memory = _aligned_malloc(bytes, alignment);
#else
    void* memory = std::aligned_alloc(alignment, bytes);
#endif
    if (!memory) throw std::bad_alloc();
    return static_cast<scalar*>(memory);
}

inline void freeSamples(scalar* data, size_t alignment = kSampleAlignment) {
    if (!data) return;
    if (alignment == 0)
        delete[] data;
    else
#ifdef _WIN32
        _aligned_free(data);
#else
        std::free(data);
#endif
}

}  // namespace vrn
