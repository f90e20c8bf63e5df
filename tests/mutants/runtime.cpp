// Chooses the mutant of this process, and records which places each test reaches. Linked into the test
// programs that scripts/mutants builds.
#include <cstdlib>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "tests/mutants/mutant.h"

namespace velto_mutants {
namespace {

unsigned char unrecorded[maxMutants];

const char *RecordPath()
{
    return std::getenv("VELTO_MUTANTS_REACHED");
}

// Child processes of a test record in the same file.
void MapRecord()
{
    if (RecordPath() == nullptr) {
        return;
    }
    const int file = open((std::string(RecordPath()) + ".map").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (file < 0 || ftruncate(file, maxMutants) != 0) {
        std::abort();
    }
    void *mapped = mmap(nullptr, maxMutants, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (mapped == MAP_FAILED) {
        std::abort();
    }
    close(file);
    reached = static_cast<unsigned char *>(mapped);
}

// Writes a line for each test: name, milliseconds, the numbers of the places it reached. The line "load"
// has the places that were reached before the first test.
class Recorder : public testing::EmptyTestEventListener {
public:
    void OnTestProgramStart(const testing::UnitTest &) override { Write("load", 0); }
    void OnTestStart(const testing::TestInfo &) override { Clear(); }
    void OnTestEnd(const testing::TestInfo &test) override
    {
        Write(std::string(test.test_suite_name()) + "." + test.name(), test.result()->elapsed_time());
    }

private:
    static void Clear()
    {
        for (unsigned id = 0; id < maxMutants; ++id) {
            __atomic_store_n(reached + id, 0, __ATOMIC_RELAXED);
        }
    }
    static void Write(const std::string &name, long long elapsedMs)
    {
        std::ofstream out(std::string(RecordPath()) + ".txt", std::ios::app);
        out << name << '\t' << elapsedMs << '\t';
        for (unsigned id = 0; id < maxMutants; ++id) {
            if (__atomic_load_n(reached + id, __ATOMIC_RELAXED) != 0) {
                out << id << ' ';
            }
        }
        out << '\n';
        Clear();
    }
};

// Runs before the constructors of all other static objects, because these may reach mutants already.
__attribute__((constructor(101))) void Choose()
{
    if (const char *number = std::getenv("VELTO_MUTANT")) {
        active = static_cast<unsigned>(std::atoi(number));
    }
    MapRecord();
}

[[maybe_unused]] const bool listens = [] {
    const char *recorder = "VELTO_MUTANTS_RECORDER"; // set: this is a child process of a test
    if (RecordPath() != nullptr && std::getenv(recorder) == nullptr) {
        setenv(recorder, "1", 1);
        testing::UnitTest::GetInstance()->listeners().Append(new Recorder);
    }
    return true;
}();

} // namespace

constinit unsigned active = 0;
constinit unsigned char *reached = unrecorded;

} // namespace velto_mutants
