// Runs a fuzz target once for each given file and for each file in the given folders, so that every build can
// replay the seed corpora and the findings without a fuzzer. A finding that is not fixed ends the process. If
// folders are given, their inputs together must achieve every effect of the target.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "effects.h"
#include "input.h"

namespace {

namespace fs = std::filesystem;

// Returns the files sorted by name, so that each run has the same order.
std::vector<fs::path> FilesIn(const fs::path &path)
{
    if (!fs::is_directory(path)) {
        return {path};
    }
    std::vector<fs::path> files;
    for (const auto &entry : fs::recursive_directory_iterator(path)) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

// The heap block has exactly the file's size, so that AddressSanitizer reports a read past its end.
void Replay(const fs::path &path)
{
    const size_t size = fs::file_size(path);
    const auto bytes = std::make_unique<char[]>(size);
    std::ifstream file(path, std::ios::binary);
    if (!file.read(bytes.get(), static_cast<std::streamsize>(size))) {
        throw std::runtime_error("cannot read " + path.string());
    }
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.get()), size);
}

} // namespace

int main(int count, char **arguments)
{
    try {
        size_t inputs = 0;
        bool hasFolder = false;
        for (int i = 1; i < count; ++i) {
            // A target without findings has no folder for them.
            const fs::path path = arguments[i];
            hasFolder = hasFolder || fs::is_directory(path);
            for (const fs::path &file : fs::exists(path) ? FilesIn(path) : std::vector<fs::path>{}) {
                // After a crash, the last name printed is the finding.
                std::fprintf(stderr, "%s\n", file.filename().c_str());
                Replay(file);
                ++inputs;
            }
        }
        std::printf("%zu inputs\n", inputs);
        const bool hasEffects = !hasFolder || velto_fuzz::Effect::AllAchieved();
        return inputs > 0 && hasEffects ? 0 : 1;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
