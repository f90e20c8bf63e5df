// The registry library on the system's registry, under a key that only this process uses.
#include "registry/registry.h"

#include <gtest/gtest.h>

#include "tests/platform/process.h"

namespace {

using DE::Registry;

constexpr REGSAM allAccess = 0xF003F;

class SystemRegistry : public testing::Test {
protected:
    SystemRegistry() { Delete(); }
    ~SystemRegistry() override { Delete(); }

    void Delete() const { RegDeleteTreeW(HKEY_CURRENT_USER, key.c_str()); }
    bool Get(DWORD &value) const
    {
        return Registry::GetValue(HKEY_CURRENT_USER, L"\\" + key, L"StreamType", value, allAccess);
    }
    bool Set(DWORD value) const { return SetAt(L"\\" + key, value); }
    static bool SetAt(const std::wstring &path, DWORD value)
    {
        return Registry::SetValue(HKEY_CURRENT_USER, path, L"StreamType", value, allAccess);
    }
    // Reads the value without the library, as another program would.
    DWORD Stored() const
    {
        DWORD value = 0;
        DWORD bytes = sizeof(value);
        const LSTATUS status = RegGetValueW(HKEY_CURRENT_USER, key.c_str(), L"StreamType", RRF_RT_REG_DWORD,
                                            nullptr, &value, &bytes);
        EXPECT_EQ(status, ERROR_SUCCESS);
        return value;
    }

    const std::wstring key = L"SOFTWARE\\VeltoPlatformTests\\" + std::to_wstring(ProcessId());
};

TEST_F(SystemRegistry, ReadsAndWritesPathWithLeadingBackslash)
{
    DWORD value = 4711;
    EXPECT_FALSE(Get(value));
    EXPECT_EQ(value, 4711U);
    EXPECT_TRUE(Set(0xFFFFFFFF));
    EXPECT_EQ(Stored(), 0xFFFFFFFFU);
    EXPECT_TRUE(Get(value));
    EXPECT_EQ(value, 0xFFFFFFFFU);
}

TEST_F(SystemRegistry, IgnoresNumberOfLeadingBackslashes)
{
    EXPECT_TRUE(SetAt(L"\\\\" + key, 5));
    EXPECT_EQ(Stored(), 5U);
    EXPECT_TRUE(SetAt(key, 6));
    EXPECT_EQ(Stored(), 6U);
}

TEST_F(SystemRegistry, RecoversWhenKeyIsDeleted)
{
    ASSERT_TRUE(Set(1));
    Delete();
    DWORD value = 4711;
    EXPECT_FALSE(Get(value));
    EXPECT_EQ(value, 4711U);
    EXPECT_TRUE(Set(2));
    EXPECT_EQ(Stored(), 2U);
    Delete();
    EXPECT_TRUE(Set(3)) << "deleted between two writes";
    EXPECT_TRUE(Get(value));
    EXPECT_EQ(value, 3U);
}

TEST_F(SystemRegistry, ReadsValueWrittenOutsideLibrary)
{
    ASSERT_TRUE(Set(1));
    const DWORD other = 77;
    ASSERT_EQ(
        RegSetKeyValueW(HKEY_CURRENT_USER, key.c_str(), L"StreamType", REG_DWORD, &other, sizeof(other)),
        ERROR_SUCCESS);
    DWORD value = 0;
    EXPECT_TRUE(Get(value));
    EXPECT_EQ(value, 77U);
}

TEST_F(SystemRegistry, RefusesToReadValueOfOtherTypeOrSize)
{
    ASSERT_TRUE(Set(1));
    DWORD value = 4711;
    const auto store = [this](DWORD type, DWORD bytes) {
        const BYTE data[8] = {1, 0, 0, 0, 0, 0, 0, 0};
        return RegSetKeyValueW(HKEY_CURRENT_USER, key.c_str(), L"StreamType", type, data, bytes);
    };
    ASSERT_EQ(store(REG_BINARY, 4), ERROR_SUCCESS);
    EXPECT_FALSE(Get(value));
    ASSERT_EQ(store(REG_QWORD, 8), ERROR_SUCCESS);
    EXPECT_FALSE(Get(value));
    ASSERT_EQ(store(REG_DWORD, 2), ERROR_SUCCESS);
    EXPECT_FALSE(Get(value));
    EXPECT_EQ(value, 4711U);
    ASSERT_EQ(store(REG_DWORD, 4), ERROR_SUCCESS);
    EXPECT_TRUE(Get(value));
}

TEST_F(SystemRegistry, LeaksNoHandleOverThousandReads)
{
    ASSERT_TRUE(Set(1));
    const std::size_t before = OpenHandles();
    for (int i = 0; i < 1000; ++i) {
        DWORD value = 0;
        EXPECT_TRUE(Get(value));
        if (i % 100 == 0) {
            Delete();
            EXPECT_TRUE(Set(1));
        }
    }
    EXPECT_EQ(OpenHandles(), before);
}

} // namespace
