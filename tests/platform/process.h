// The test process: its ids, open handles and environment.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

unsigned long ProcessId();
unsigned long ThreadId(); // of the calling thread

// Number of handles that this process has open; on Linux, of file descriptors.
std::size_t OpenHandles();

// Sets a variable of this process's environment; an empty value removes it.
void SetEnvironment(const std::string &name, const std::filesystem::path &value);
// The value of a variable; empty if there is none.
std::filesystem::path GetEnvironment(const std::string &name);

// Sets a variable and restores its previous value at the end of the scope.
class ScopedEnvironment {
public:
    ScopedEnvironment(std::string name, const std::filesystem::path &value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment &) = delete;
    ScopedEnvironment &operator=(const ScopedEnvironment &) = delete;

private:
    const std::string m_name;
    const std::filesystem::path m_previous;
};
