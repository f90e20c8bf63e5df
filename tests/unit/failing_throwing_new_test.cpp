#include "failing_throwing_new.h"

#include <deque>
#include <memory_resource>
#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace {

using velto_test::FailingThrowingNew;

struct alignas(64) Aligned {
    char bytes[64];
};

bool Throws(const std::function<void()> &allocate)
{
    try {
        allocate();
        return false;
    } catch (const std::bad_alloc &) {
        return true;
    }
}

// Prevents the compiler from optimising away a new and its delete.
template <typename Object>
void Use(Object *object)
{
    asm volatile("" : : "r"(object) : "memory");
}

void NewAndDelete()
{
    auto *object = new int(1);
    Use(object);
    delete object;
}

TEST(FailingThrowingNew, FailsOnlyNthCall)
{
    for (int nth = 1; nth <= 3; ++nth) {
        const FailingThrowingNew noMemory(nth);
        for (int call = 1; call <= 4; ++call) {
            EXPECT_EQ(noMemory.HasFailed(), call > nth);
            EXPECT_EQ(Throws(NewAndDelete), call == nth) << "call " << call << ", nth " << nth;
        }
    }
}

TEST(FailingThrowingNew, AffectsArraysAlignedTypesAndLibraryCalls)
{
    const std::function<void()> allocations[] = {
        [] {
            const auto array = std::make_unique<int[]>(10);
            Use(array.get());
        },
        [] {
            const auto object = std::make_unique<Aligned>();
            Use(object.get());
        },
        [] {
            const auto array = std::make_unique<Aligned[]>(3);
            Use(array.get());
        },
        [] {
            std::string text;
            text.reserve(1000); // instantiated in the C++ library
        },
        [] { const std::deque<int> queue; },
        [] {
            std::pmr::unsynchronized_pool_resource pool;
            pool.deallocate(pool.allocate(100), 100);
        },
    };
    for (const auto &allocate : allocations) {
        EXPECT_FALSE(Throws(allocate));
        const FailingThrowingNew noMemory(1);
        EXPECT_TRUE(Throws(allocate));
    }
}

TEST(FailingThrowingNew, MakesNonThrowingFormReturnNull)
{
    const FailingThrowingNew noMemory(2);
    const std::unique_ptr<int> first(new (std::nothrow) int(1));
    const std::unique_ptr<int> second(new (std::nothrow) int(2));
    const std::unique_ptr<int> third(new (std::nothrow) int(3));
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(second, nullptr);
    EXPECT_NE(third, nullptr);
}

TEST(FailingThrowingNew, CountsCallsOfOwnThreadOnly)
{
    bool otherThrew = true;
    {
        const FailingThrowingNew noMemory(100);
        std::thread other([&] {
            otherThrew = false;
            for (int call = 0; call < 200; ++call) {
                otherThrew = Throws(NewAndDelete) || otherThrew;
            }
        });
        other.join();
        EXPECT_FALSE(noMemory.HasFailed());
    }
    EXPECT_FALSE(otherThrew);
    EXPECT_FALSE(Throws(NewAndDelete));
}

} // namespace
