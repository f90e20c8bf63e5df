// The registry library on a fake registry: its system calls, and how it handles failures.
#include "registry/registry.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "failing_throwing_new.h"
#include "tests/fakes/fake_registry.h"
#include "tests/fakes/fake_windows.h"
#include "tests/platform/threads.h"

namespace {

using DE::Registry;
using fakewin::Call;
using fakewin::Count;

constexpr REGSAM allAccess = 0xF003F;
const std::wstring path = L"\\SOFTWARE\\NORVEL\\NRAudio\\NrMirror";
const std::wstring plainPath = L"SOFTWARE\\NORVEL\\NRAudio\\NrMirror";
const std::wstring name = L"StreamType";

class RegistryLibrary : public testing::Test {
protected:
    // Reset also marks the keys that an earlier test left open as deleted. The library reopens such keys.
    RegistryLibrary() { fakewin::Reset(); }
    ~RegistryLibrary() override { EXPECT_EQ(fakewin::Violations(), std::vector<std::string>()); }

    static bool Get(DWORD &value)
    {
        return Registry::GetValue(HKEY_CURRENT_USER, path, name, value, allAccess);
    }
    static bool Set(DWORD value)
    {
        return Registry::SetValue(HKEY_CURRENT_USER, path, name, value, allAccess);
    }
    static void Store(DWORD value) { fakewin::SetRegistryDword(HKEY_CURRENT_USER, plainPath, name, value); }
    // Stores a value and reads it once, which leaves the key open.
    static void StoreAndOpenKey(DWORD stored)
    {
        Store(stored);
        DWORD value = 0;
        ASSERT_TRUE(Get(value));
    }
    static auto Stored() { return fakewin::RegistryDword(HKEY_CURRENT_USER, plainPath, name); }
};

TEST_F(RegistryLibrary, ReadsWithOneQueryOnceKeyIsOpen)
{
    StoreAndOpenKey(3);
    DWORD value = 0;
    const int opens = Count(Call::RegOpenKeyExW);
    const int queries = Count(Call::RegQueryValueExW);
    const int total = fakewin::TotalCalls();
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(Get(value));
    }
    EXPECT_EQ(Count(Call::RegOpenKeyExW), opens);
    EXPECT_EQ(Count(Call::RegQueryValueExW), queries + 100);
    EXPECT_EQ(fakewin::TotalCalls(), total + 100);
    EXPECT_EQ(value, 3U);
}

TEST_F(RegistryLibrary, WritesThroughKeyOpenedByRead)
{
    StoreAndOpenKey(3);
    DWORD value = 0;
    EXPECT_TRUE(Set(4));
    EXPECT_EQ(Count(Call::RegCreateKeyExW), 0);
    EXPECT_EQ(Stored(), 4U);
    EXPECT_TRUE(Get(value));
    EXPECT_EQ(value, 4U);
}

TEST_F(RegistryLibrary, KeepsValueWhenKeyIsMissing)
{
    DWORD value = 4711;
    EXPECT_FALSE(Get(value));
    EXPECT_FALSE(Get(value));
    EXPECT_EQ(value, 4711U);
    Store(9); // as another program would
    EXPECT_TRUE(Get(value));
    EXPECT_EQ(value, 9U);
}

TEST_F(RegistryLibrary, CreatesMissingPermanentKeyOnWrite)
{
    EXPECT_TRUE(Set(7));
    EXPECT_EQ(Count(Call::RegCreateKeyExW), 1);
    EXPECT_TRUE(fakewin::IsPermanentRegistryKey(HKEY_CURRENT_USER, plainPath));
    EXPECT_EQ(Stored(), 7U);
    EXPECT_TRUE(Set(8));
    EXPECT_EQ(Count(Call::RegCreateKeyExW), 1);
    EXPECT_EQ(Stored(), 8U);
}

TEST_F(RegistryLibrary, ReopensKeyDeletedBetweenCalls)
{
    StoreAndOpenKey(1);
    DWORD value = 0;
    const int keys = fakewin::LiveRegistryKeys();
    fakewin::Reset(); // deletes the key
    EXPECT_FALSE(Get(value));
    Store(2);
    EXPECT_TRUE(Get(value));
    EXPECT_EQ(value, 2U);
    fakewin::Reset();
    EXPECT_TRUE(Set(3));
    EXPECT_EQ(Stored(), 3U);
    EXPECT_EQ(fakewin::LiveRegistryKeys(), keys) << "the library closes deleted keys";
}

TEST_F(RegistryLibrary, ReopensInvalidKeyOncePerCall)
{
    StoreAndOpenKey(1);
    DWORD value = 0;
    const int opens = Count(Call::RegOpenKeyExW);
    fakewin::Fail(Call::RegQueryValueExW, ERROR_INVALID_HANDLE);
    EXPECT_TRUE(Get(value));
    EXPECT_EQ(Count(Call::RegOpenKeyExW), opens + 1);

    fakewin::Fail(Call::RegQueryValueExW, ERROR_KEY_DELETED, 1, 2);
    EXPECT_FALSE(Get(value)) << "a call reopens its key only once";
    EXPECT_EQ(Count(Call::RegOpenKeyExW), opens + 2);
    EXPECT_TRUE(Get(value));
}

TEST_F(RegistryLibrary, KeepsKeyOpenAfterAccessDenied)
{
    StoreAndOpenKey(1);
    DWORD value = 0;
    const int opens = Count(Call::RegOpenKeyExW);
    fakewin::Fail(Call::RegQueryValueExW, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Get(value));
    fakewin::Fail(Call::RegSetValueExW, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Set(5));
    EXPECT_TRUE(Get(value));
    EXPECT_EQ(Count(Call::RegOpenKeyExW), opens);
    EXPECT_EQ(value, 1U);
}

TEST_F(RegistryLibrary, FailsWriteWhenKeyCannotBeCreated)
{
    fakewin::Fail(Call::RegCreateKeyExW, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Set(5));
    EXPECT_EQ(Stored(), std::nullopt);
    EXPECT_TRUE(Set(5));
}

TEST_F(RegistryLibrary, UsesRootForPathOfBackslashes)
{
    DWORD value = 7;
    EXPECT_TRUE(Registry::SetValue(HKEY_CURRENT_USER, L"\\\\", name, value, allAccess));
    EXPECT_EQ(fakewin::RegistryDword(HKEY_CURRENT_USER, L"", name), 7U);
}

TEST_F(RegistryLibrary, FailsReadWithoutMemoryAndReadsWithIt)
{
    int failures = 0;
    for (bool hasFailed = true; hasFailed; failures += hasFailed ? 1 : 0) {
        // Another path each time, because the library remembers the paths that it has used.
        const std::wstring newPath = path + L"\\NoMemory" + std::to_wstring(failures);
        fakewin::SetRegistryDword(HKEY_CURRENT_USER, newPath.substr(1), name, 5);
        DWORD value = 0;
        const auto read = [&] {
            return Registry::GetValue(HKEY_CURRENT_USER, newPath, name, value, allAccess);
        };
        {
            const velto_test::FailingThrowingNew noMemory(failures + 1);
            bool isRead = false;
            EXPECT_NO_THROW(isRead = read());
            hasFailed = noMemory.HasFailed();
            EXPECT_EQ(isRead, !hasFailed) << "allocation " << failures + 1;
        }
        EXPECT_TRUE(read());
        EXPECT_EQ(value, 5U);
    }
    EXPECT_GT(failures, 0);
}

TEST_F(RegistryLibrary, FailsWriteWithoutMemoryAndWritesWithIt)
{
    int failures = 0;
    for (bool hasFailed = true; hasFailed; failures += hasFailed ? 1 : 0) {
        const std::wstring newPath = path + L"\\NoMemory" + std::to_wstring(failures);
        DWORD value = 5;
        const auto write = [&] {
            return Registry::SetValue(HKEY_CURRENT_USER, newPath, name, value, allAccess);
        };
        {
            const velto_test::FailingThrowingNew noMemory(failures + 1);
            bool isWritten = false;
            EXPECT_NO_THROW(isWritten = write());
            hasFailed = noMemory.HasFailed();
            EXPECT_EQ(isWritten, !hasFailed) << "allocation " << failures + 1;
        }
        EXPECT_TRUE(write());
        EXPECT_EQ(fakewin::RegistryDword(HKEY_CURRENT_USER, newPath.substr(1), name), 5U);
    }
    EXPECT_GT(failures, 0);
}

TEST_F(RegistryLibrary, RefusesToReadNumberOfOtherSize)
{
    DWORD value = 4711;
    fakewin::SetRegistryBytes(HKEY_CURRENT_USER, plainPath, name, REG_DWORD, {1, 0});
    EXPECT_FALSE(Get(value));
    fakewin::SetRegistryBytes(HKEY_CURRENT_USER, plainPath, name, REG_DWORD, {1, 0, 0, 0, 0});
    EXPECT_FALSE(Get(value));
    EXPECT_EQ(value, 4711U);
    fakewin::SetRegistryBytes(HKEY_CURRENT_USER, plainPath, name, REG_DWORD, {1, 0, 0, 0});
    EXPECT_TRUE(Get(value));
    EXPECT_EQ(value, 1U);
}

TEST_F(RegistryLibrary, RefusesToReadValueOfOtherType)
{
    fakewin::SetRegistryString(HKEY_CURRENT_USER, plainPath, name, L"");
    DWORD value = 4711;
    EXPECT_FALSE(Get(value));
    fakewin::SetRegistryString(HKEY_CURRENT_USER, plainPath, name, L"x"); // four bytes, like a number
    EXPECT_FALSE(Get(value));
    fakewin::SetRegistryString(HKEY_CURRENT_USER, plainPath, name, L"a longer text");
    EXPECT_FALSE(Get(value));
    EXPECT_EQ(value, 4711U);
    EXPECT_TRUE(Set(5)) << "replaces the value";
    EXPECT_TRUE(Get(value));
}

TEST_F(RegistryLibrary, DistinguishesKeysByRootPathAndAccess)
{
    Store(1);
    fakewin::SetRegistryDword(HKEY_LOCAL_MACHINE, plainPath, name, 2);
    fakewin::SetRegistryDword(HKEY_CURRENT_USER, plainPath + L"2", name, 3);
    constexpr REGSAM readAccess = 0x20019;
    DWORD values[4] = {};
    EXPECT_TRUE(Registry::GetValue(HKEY_CURRENT_USER, path, name, values[0], allAccess));
    EXPECT_TRUE(Registry::GetValue(HKEY_LOCAL_MACHINE, path, name, values[1], allAccess));
    EXPECT_TRUE(Registry::GetValue(HKEY_CURRENT_USER, path + L"2", name, values[2], allAccess));
    const int opens = Count(Call::RegOpenKeyExW);
    EXPECT_TRUE(Registry::GetValue(HKEY_CURRENT_USER, path, name, values[3], readAccess));
    EXPECT_EQ(Count(Call::RegOpenKeyExW), opens + 1);
    EXPECT_EQ((std::vector<DWORD>(values, values + 4)), (std::vector<DWORD>{1, 2, 3, 1}));
}

TEST_F(RegistryLibrary, ServesSeveralThreadsWhileKeyIsReportedDeleted)
{
    Store(1);
    RunOnThreads(4, [](int) {
        for (int i = 0; i < 500; ++i) {
            DWORD value = 0;
            if (i % 50 == 0) {
                fakewin::Fail(Call::RegQueryValueExW, ERROR_KEY_DELETED);
            }
            Get(value);
            Set(static_cast<DWORD>(i));
        }
    });
    DWORD value = 0;
    EXPECT_TRUE(Get(value));
    EXPECT_EQ(value, 499U);
}

} // namespace
