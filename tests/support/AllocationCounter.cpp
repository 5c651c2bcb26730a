// Replaces the global allocation functions of a test program so that allocations can be counted.
// Kept apart from the tests so the compiler does not pair our new with library deletes.

#include "support/AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace allocation {

std::atomic<bool> counting{false};
std::atomic<long> count{0};
std::atomic<const void*> watched{nullptr};
std::atomic<bool> watchedFreed{false};

inline void note() {
    if (counting.load(std::memory_order_relaxed)) count.fetch_add(1, std::memory_order_relaxed);
}

inline void noteFree(const void* pointer) {
    if (pointer && pointer == watched.load(std::memory_order_relaxed)) watchedFreed = true;
}

}  // namespace allocation

// Where this file replaces malloc too, operator new takes glibc's entry points directly, so that one
// allocation counts once in every build.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define ORM_COUNTS_MALLOC 1
extern "C" void* __libc_malloc(std::size_t);
extern "C" void* __libc_memalign(std::size_t, std::size_t);
namespace allocation {
inline void* raw(std::size_t size) { return __libc_malloc(size); }
inline void* rawAligned(std::size_t alignment, std::size_t size) { return __libc_memalign(alignment, size); }
}  // namespace allocation
#else
namespace allocation {
inline void* raw(std::size_t size) { return std::malloc(size); }
inline void* rawAligned(std::size_t alignment, std::size_t size) { return std::aligned_alloc(alignment, size); }
}  // namespace allocation
#endif

namespace orm_test {
std::atomic<bool>& allocationCounting() { return allocation::counting; }
std::atomic<long>& allocationCount() { return allocation::count; }
}  // namespace orm_test

// The executable's operators replace the library's for the whole process, the dlopen'ed module
// included (the test program exports its symbols).
void* operator new(std::size_t size) {
    allocation::note();
    if (void* p = allocation::raw(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    allocation::note();
    return allocation::raw(size ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void* operator new(std::size_t size, std::align_val_t alignment) {
    allocation::note();
    std::size_t a = static_cast<std::size_t>(alignment);
    if (void* p = allocation::rawAligned(a, (size + a - 1) / a * a)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size, std::align_val_t alignment) { return operator new(size, alignment); }

void operator delete(void* p) noexcept {
    allocation::noteFree(p);
    std::free(p);
}
void operator delete[](void* p) noexcept { operator delete(p); }
void operator delete(void* p, std::size_t) noexcept { operator delete(p); }
void operator delete[](void* p, std::size_t) noexcept { operator delete(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { operator delete(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { operator delete(p); }
void operator delete(void* p, std::align_val_t) noexcept { operator delete(p); }
void operator delete[](void* p, std::align_val_t) noexcept { operator delete(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { operator delete(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { operator delete(p); }

#ifdef ORM_COUNTS_MALLOC
// Plain C allocations too, where no sanitizer owns malloc: glibc's own entry points do the work.
extern "C" {
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

void* malloc(std::size_t size) {
    allocation::note();
    return __libc_malloc(size);
}
void* calloc(std::size_t n, std::size_t size) {
    allocation::note();
    return __libc_calloc(n, size);
}
void* realloc(void* p, std::size_t size) {
    allocation::note();
    return __libc_realloc(p, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
    allocation::note();
    return __libc_memalign(alignment, size);
}
void* memalign(std::size_t alignment, std::size_t size) {
    allocation::note();
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** out, std::size_t alignment, std::size_t size) {
    allocation::note();
    *out = __libc_memalign(alignment, size);
    return *out ? 0 : 12;  // ENOMEM
}
}
#endif
