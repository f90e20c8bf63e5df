// Replaces the throwing `operator new` in the unit tests' program. The fuzz targets do not link this file:
// clang links them with a static sanitizer runtime that defines its own `operator new`.
//
// `operator delete` is not replaced, so each block must come from the allocator that `operator delete`
// expects. In native builds that is the next definition of `operator new`, the sanitizer's or libstdc++'s.
// Windows builds link libstdc++ statically and have no next definition; they call the same allocation
// functions as libstdc++.
#include "failing_throwing_new.h"

#ifdef _WIN32
#include <malloc.h>
#else
#include <dlfcn.h>
#endif

#include <cstdlib>
#include <new>

namespace velto_test {
namespace {

thread_local int callsUntilFailure = 0; // 0: no call fails, or the nth has failed

void ThrowIfFailing()
{
    if (callsUntilFailure > 0 && --callsUntilFailure == 0) {
        throw std::bad_alloc();
    }
}

#ifdef _WIN32

void *OrThrow(void *block)
{
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

#else

// Finds the next definition of a symbol, after this program's own.
template <typename Function>
Function *Next(const char *symbol)
{
    auto *function = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, symbol));
    if (function == nullptr) {
        std::abort(); // no allocation is possible
    }
    return function;
}

#endif

} // namespace

FailingThrowingNew::FailingThrowingNew(int nth)
{
    callsUntilFailure = nth;
}

FailingThrowingNew::~FailingThrowingNew()
{
    callsUntilFailure = 0;
}

bool FailingThrowingNew::HasFailed() const
{
    return callsUntilFailure == 0;
}

} // namespace velto_test

void *operator new(std::size_t bytes)
{
    velto_test::ThrowIfFailing();
#ifdef _WIN32
    return velto_test::OrThrow(std::malloc(bytes != 0 ? bytes : 1));
#else
    static auto *const next = velto_test::Next<void *(std::size_t)>("_Znwm");
    return next(bytes);
#endif
}

void *operator new[](std::size_t bytes)
{
#ifdef _WIN32
    return ::operator new(bytes);
#else
    velto_test::ThrowIfFailing();
    static auto *const next = velto_test::Next<void *(std::size_t)>("_Znam");
    return next(bytes);
#endif
}

void *operator new(std::size_t bytes, std::align_val_t alignment)
{
    velto_test::ThrowIfFailing();
#ifdef _WIN32
    return velto_test::OrThrow(_aligned_malloc(bytes != 0 ? bytes : 1, static_cast<std::size_t>(alignment)));
#else
    static auto *const next = velto_test::Next<void *(std::size_t, std::align_val_t)>("_ZnwmSt11align_val_t");
    return next(bytes, alignment);
#endif
}

void *operator new[](std::size_t bytes, std::align_val_t alignment)
{
#ifdef _WIN32
    return ::operator new(bytes, alignment);
#else
    velto_test::ThrowIfFailing();
    static auto *const next = velto_test::Next<void *(std::size_t, std::align_val_t)>("_ZnamSt11align_val_t");
    return next(bytes, alignment);
#endif
}
