#include "bench/counted_new.h"

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> allocations{0};

void *Allocate(std::size_t bytes)
{
    ++allocations;
    void *block = std::malloc(bytes == 0 ? 1 : bytes);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void *Allocate(std::size_t bytes, std::align_val_t alignment)
{
    ++allocations;
    void *block = _aligned_malloc(bytes, static_cast<std::size_t>(alignment));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

} // namespace

// The other forms of operator new and delete call these.
void *operator new(std::size_t bytes)
{
    return Allocate(bytes);
}
void *operator new(std::size_t bytes, std::align_val_t alignment)
{
    return Allocate(bytes, alignment);
}
void operator delete(void *block) noexcept
{
    std::free(block);
}
void operator delete(void *block, std::size_t) noexcept
{
    std::free(block);
}
void operator delete(void *block, std::align_val_t) noexcept
{
    _aligned_free(block);
}
void operator delete(void *block, std::size_t, std::align_val_t) noexcept
{
    _aligned_free(block);
}

namespace velto::bench {

uint64_t Allocations()
{
    return allocations;
}

} // namespace velto::bench
