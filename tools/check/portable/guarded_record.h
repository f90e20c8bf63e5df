// Host records that end directly before an inaccessible page.
#pragma once

#include <cstring>
#include <memory>
#include <string_view>
#include <type_traits>

#include "check/portable/environment.h"

namespace velto::check {

// A copy of a record of the C interface.
template <typename Record>
class GuardedRecord {
    static_assert(std::is_trivially_copyable_v<Record>);

public:
    GuardedRecord(Environment &environment, const Record &record)
        : m_memory(environment.Guarded(sizeof(Record)))
    {
        std::memcpy(m_memory->Data(), &record, sizeof(Record));
    }

    Record *Get() const { return reinterpret_cast<Record *>(m_memory->Data()); }
    Record *operator->() const { return Get(); }
    GuardedMemory &Memory() const { return *m_memory; }

private:
    std::unique_ptr<GuardedMemory> m_memory;
};

// A copy of a text; its terminator is the last accessible byte.
class GuardedText {
public:
    GuardedText(Environment &environment, std::string_view text)
        : m_memory(environment.Guarded(text.size() + 1)), m_length(text.size())
    {
        std::memcpy(m_memory->Data(), text.data(), text.size());
        m_memory->Data()[text.size()] = 0;
    }

    const char *Get() const { return reinterpret_cast<const char *>(m_memory->Data()); }
    uint32_t Length() const { return static_cast<uint32_t>(m_length); }
    GuardedMemory &Memory() const { return *m_memory; }

private:
    std::unique_ptr<GuardedMemory> m_memory;
    size_t m_length;
};

} // namespace velto::check
