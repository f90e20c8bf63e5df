// Host records in memory that ends directly before an inaccessible page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>
#include <type_traits>

#include "check/portable/environment.h"

namespace velto::check {

// Accessible bytes behind a record, for checks in which it does not matter that a module reads too much.
inline constexpr size_t bytesToSpare = 512;

// A copy of a record of the C interface, with `bytesBehind` accessible bytes behind it.
template <typename Record>
class GuardedRecord {
    static_assert(std::is_trivially_copyable_v<Record>);

public:
    GuardedRecord(Environment &environment, const Record &record, size_t bytesBehind = 0)
        : m_memory(environment.Guarded(sizeof(Record) + bytesBehind))
    {
        std::memcpy(m_memory->Data(), &record, sizeof(Record));
    }

    Record *Get() const { return reinterpret_cast<Record *>(m_memory->Data()); }
    Record *operator->() const { return Get(); }
    GuardedMemory &Memory() const { return *m_memory; }

private:
    std::unique_ptr<GuardedMemory> m_memory;
};

// A copy of a text; its terminator is the last accessible byte, except for `bytesBehind`.
class GuardedText {
public:
    GuardedText(Environment &environment, std::string_view text, size_t bytesBehind = 0)
        : m_memory(environment.Guarded(text.size() + 1 + bytesBehind)), m_length(text.size())
    {
        std::copy(text.begin(), text.end(), m_memory->Data());
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
