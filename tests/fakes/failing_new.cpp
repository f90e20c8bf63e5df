#include "tests/fakes/failing_new.h"

#include <atomic>
#include <new>

namespace fakes {
namespace {

std::atomic<std::size_t> failingBytes{0};

template <typename Allocate>
void *UnlessFailing(std::size_t bytes, Allocate allocate) noexcept
{
    if (bytes != 0 && bytes == failingBytes) {
        return nullptr;
    }
    try {
        return allocate(bytes);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

} // namespace

FailingNew::FailingNew(std::size_t bytes)
{
    failingBytes = bytes;
}
FailingNew::~FailingNew()
{
    failingBytes = 0;
}

} // namespace fakes

void *operator new(std::size_t bytes, const std::nothrow_t &) noexcept
{
    return fakes::UnlessFailing(bytes, [](std::size_t size) { return ::operator new(size); });
}

void *operator new[](std::size_t bytes, const std::nothrow_t &) noexcept
{
    return fakes::UnlessFailing(bytes, [](std::size_t size) { return ::operator new[](size); });
}
