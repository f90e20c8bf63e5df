// What is left of the platform libraries after FreeLibrary.
#include <windows.h>

#include <gtest/gtest.h>

#include "tests/platform/test_folder.h"

namespace {

constexpr const wchar_t *key = L"SOFTWARE\\VeltoPlatformTests\\Unload";

void LoadUseAndUnload()
{
    const HMODULE module = LoadLibraryW(L"velto-unload-probe.dll");
    ASSERT_NE(module, nullptr);
    using Use = void (*)(const wchar_t *);
    const auto use = reinterpret_cast<Use>(reinterpret_cast<void *>(GetProcAddress(module, "UsePlatform")));
    ASSERT_NE(use, nullptr);
    use(key);
    ASSERT_TRUE(FreeLibrary(module));
    ASSERT_EQ(GetModuleHandleW(L"velto-unload-probe.dll"), nullptr);
}

class PlatformUnload : public testing::Test {
protected:
    PlatformUnload()
    {
        m_before = GetEnvironment("VELTO_LOG_FILE");
        m_log = FreshPath("unload.log");
        SetEnvironment("VELTO_LOG_FILE", m_log);
    }
    ~PlatformUnload() override
    {
        SetEnvironment("VELTO_LOG_FILE", m_before);
        RegDeleteTreeW(HKEY_CURRENT_USER, key);
    }
    std::filesystem::path m_before;
    std::filesystem::path m_log;
};

TEST_F(PlatformUnload, ClosesLogFile)
{
    LoadUseAndUnload();
    EXPECT_EQ(CountLinesWith(m_log, "from a module that will be unloaded"), 2);
    const HANDLE alone =
        CreateFileW(m_log.c_str(), GENERIC_READ | DELETE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(alone, INVALID_HANDLE_VALUE) << "somebody still has the file open";
    CloseHandle(alone);
}

TEST_F(PlatformUnload, LeaksNoHandleOverTwentyCycles)
{
    LoadUseAndUnload(); // what the system keeps for itself after the first time
    DWORD before = 0;
    DWORD after = 0;
    GetProcessHandleCount(GetCurrentProcess(), &before);
    for (int i = 0; i < 20; ++i) {
        LoadUseAndUnload();
    }
    GetProcessHandleCount(GetCurrentProcess(), &after);
    EXPECT_EQ(after, before);
    EXPECT_EQ(CountLinesWith(m_log, "[Probe]"), 21);
}

} // namespace
