// Unloading a DLL that uses the platform libraries closes their log file and leaks no handle.
#include <windows.h>

#include <gtest/gtest.h>

#include "tests/platform/process.h"
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
    ~PlatformUnload() override { RegDeleteTreeW(HKEY_CURRENT_USER, key); }

    const std::filesystem::path m_log = FreshPath("unload.log");

private:
    const ScopedEnvironment m_logFile{"VELTO_LOG_FILE", m_log};
};

TEST_F(PlatformUnload, ClosesLogFile)
{
    LoadUseAndUnload();
    EXPECT_EQ(CountLinesWith(m_log, "from the unload probe"), 2);
    const HANDLE unshared =
        CreateFileW(m_log.c_str(), GENERIC_READ | DELETE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(unshared, INVALID_HANDLE_VALUE) << "the log file is still open";
    CloseHandle(unshared);
}

TEST_F(PlatformUnload, LeaksNoHandleOverTwentyCycles)
{
    LoadUseAndUnload(); // the system keeps some handles after the first cycle
    const std::size_t before = OpenHandles();
    for (int i = 0; i < 20; ++i) {
        LoadUseAndUnload();
    }
    EXPECT_EQ(OpenHandles(), before);
    EXPECT_EQ(CountLinesWith(m_log, "[Probe]"), 21);
}

} // namespace
