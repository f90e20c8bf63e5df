// Replaces the throwing `operator new` of the unit tests' program. Part of that program only: the fuzz
// targets, which clang links with a static sanitizer runtime, keep their own.
//
// The matching `operator delete` is not replaced, so each allocation has to come from where that one expects
// it: natively from the library behind this program, a sanitizer's runtime (which checks the pairs) or
// libstdc++; in a program for Windows, where libstdc++ is linked statically, from the functions that
// libstdc++ itself calls.
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

thread_local int callsUntilFailure = 0; // 0: none fails, or one has failed

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

// The next definition of a symbol behind this program's own.
template <typename Function>
Function *Next(const char *symbol)
{
    auto *function = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, symbol));
    if (function == nullptr) {
        std::abort(); // nothing can be allocated
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
