// The copy that checks the size of its destination.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>

#include "support/checked_copy.h"

namespace {

using Bytes = std::array<uint8_t, 4>;

constexpr Bytes original{1, 2, 3, 4};
constexpr Bytes untouched{9, 9, 9, 9};

TEST(CheckedCopy, CopiesAsManyBytesAsFit)
{
    Bytes copy = untouched;
    EXPECT_EQ(velto::CheckedCopy(copy.data(), copy.size(), original.data(), original.size()), 0);
    EXPECT_EQ(copy, original);
}

TEST(CheckedCopy, LeavesRestOfLargerDestination)
{
    Bytes copy = untouched;
    EXPECT_EQ(velto::CheckedCopy(copy.data(), copy.size(), original.data(), 2), 0);
    EXPECT_EQ(copy, (Bytes{1, 2, 9, 9}));
}

TEST(CheckedCopy, CopiesNothingWhenTheDestinationIsTooSmall)
{
    Bytes copy = untouched;
    EXPECT_EQ(velto::CheckedCopy(copy.data(), copy.size() - 1, original.data(), original.size()), ERANGE);
    EXPECT_EQ(copy, untouched);
}

TEST(CheckedCopy, CopiesNothingWhenAPointerIsNull)
{
    Bytes copy = untouched;
    EXPECT_EQ(velto::CheckedCopy(copy.data(), copy.size(), nullptr, original.size()), EINVAL);
    EXPECT_EQ(velto::CheckedCopy(nullptr, copy.size(), original.data(), original.size()), EINVAL);
    EXPECT_EQ(copy, untouched);
}

TEST(CheckedCopy, AcceptsNullPointersWhenThereIsNothingToCopy)
{
    EXPECT_EQ(velto::CheckedCopy(nullptr, 0, nullptr, 0), 0);
}

} // namespace
