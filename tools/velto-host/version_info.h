// Versions: of this program, of the module and FFmpeg in a folder, and of the system.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace velto::host {

// "1.0.0, commit 0123456789ab".
std::string ProgramVersion();

// "Windows 10.0.19045", and under Wine, "Wine 8.0 as Windows 10.0.19045".
std::string SystemVersion();

struct BinaryFacts {
    std::string name;
    std::string version; // of the file; empty if it has none
    std::string product; // of the product, for FFmpeg "5.1.9"
    std::string buildId; // GUID and age, as Microsoft's symbol servers write them
    std::string sha256;
    uint64_t bytes = 0;
    std::string error; // why the file cannot be read; empty if it can
};

BinaryFacts ExamineBinary(const std::filesystem::path &file);

// The module, FFmpeg's DLLs and this program. `modulePath` as for Module.
std::vector<BinaryFacts> ExamineBinaries(const std::string &modulePath);

// What --version prints.
std::string VersionText();

} // namespace velto::host
