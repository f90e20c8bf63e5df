#include "support/new_or_null.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "failing_throwing_new.h"

namespace {

using velto::NewOrNull;
using velto_test::FailingThrowingNew;

// Like a member of the platform's codec library: allocates in its constructor.
struct AllocatingMember {
    std::unique_ptr<int> allocated = std::make_unique<int>(7);
};
struct Object {
    AllocatingMember member;
};

TEST(NewOrNull, CreatesObject)
{
    const std::unique_ptr<Object> object(NewOrNull<Object>());
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(*object->member.allocated, 7);
}

TEST(NewOrNull, ReturnsNullWhenObjectOrMemberHasNoMemory)
{
    for (const int nth : {1, 2}) {
        Object *object = nullptr;
        {
            const FailingThrowingNew noMemory(nth);
            EXPECT_NO_THROW(object = NewOrNull<Object>()) << nth;
            EXPECT_TRUE(noMemory.HasFailed()) << nth;
        }
        EXPECT_EQ(object, nullptr) << nth;
        delete object;
    }
}

struct Refusing {
    Refusing() { throw std::runtime_error("refused"); }
};

TEST(NewOrNull, PassesOtherExceptionsOn)
{
    EXPECT_THROW(NewOrNull<Refusing>(), std::runtime_error);
}

} // namespace
