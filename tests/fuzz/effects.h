// Counts what the steps of a fuzz target achieve. A kind of step that never has an effect tests nothing, so
// scripts/fuzz and replay_main.cpp fail when an effect is missing after all inputs.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace velto_fuzz {

// One kind of effect. Targets define each as a static object, before the first input. Add may be called on
// any thread.
class Effect {
public:
    explicit Effect(const char *name) : m_name(name)
    {
        if (All().empty()) {
            std::atexit(Print);
        }
        All().push_back(this);
    }
    Effect(const Effect &) = delete;
    Effect &operator=(const Effect &) = delete;

    void Add(uint64_t count = 1) { m_count += count; }

    // Prints a line for each effect that is missing. True if there is none.
    static bool AllAchieved()
    {
        bool allAchieved = true;
        for (const Effect *effect : All()) {
            if (effect->m_count == 0) {
                std::fprintf(stderr, "never achieved: %s\n", effect->m_name);
                allAchieved = false;
            }
        }
        return allAchieved;
    }

private:
    // Never destroyed: Print runs when the process ends.
    static std::vector<Effect *> &All()
    {
        static auto *all = new std::vector<Effect *>;
        return *all;
    }

    // One line for each effect, which scripts/fuzz reads from the log.
    static void Print()
    {
        for (const Effect *effect : All()) {
            std::fprintf(stderr, "effect: %s: %llu\n", effect->m_name,
                         static_cast<unsigned long long>(effect->m_count));
        }
    }

    const char *m_name;
    std::atomic<uint64_t> m_count{0};
};

} // namespace velto_fuzz
