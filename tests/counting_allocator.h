#pragma once
// Counts the heap allocations of the calling thread by wrapping the C library's
// allocator, through which the library, Qt and operator new all go. Include it in one
// file of a program: it defines malloc and its kin for the whole program. Not for the
// sanitizer builds, whose runtimes own the allocator.

#include <cstddef>
#include <cstdlib> // the declarations first, which the definitions below follow

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
}

namespace countingallocator {
inline thread_local long long allocations = 0;
}

// Allocations made so far by the calling thread.
inline long long heapAllocations()
{
    return countingallocator::allocations;
}

extern "C" void* malloc(size_t n)
{
    ++countingallocator::allocations;
    return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t size)
{
    ++countingallocator::allocations;
    return __libc_calloc(n, size);
}
extern "C" void* realloc(void* p, size_t n)
{
    ++countingallocator::allocations;
    return __libc_realloc(p, n);
}
extern "C" void* memalign(size_t alignment, size_t n)
{
    ++countingallocator::allocations;
    return __libc_memalign(alignment, n);
}
extern "C" void* aligned_alloc(size_t alignment, size_t n)
{
    return memalign(alignment, n);
}
extern "C" int posix_memalign(void** out, size_t alignment, size_t n)
{
    *out = memalign(alignment, n);
    return *out ? 0 : 12; // ENOMEM
}
