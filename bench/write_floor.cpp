#include "bench/write_floor.h"

#include <utility>

namespace velto::bench {
namespace {

constexpr wchar_t key[] = L"SOFTWARE\\VELTO\\WriteFloor";
constexpr wchar_t value[] = L"StreamType";
constexpr DWORD streamType = 3;
constexpr DWORD idleMs = 240000;
constexpr size_t maxQueuedBlocks = 20;

} // namespace

void BlockQueue::Push(std::unique_ptr<Block> block)
{
    const std::lock_guard lock(m_mutex);
    m_blocks.push_back(std::move(block));
    if (m_blocks.size() > maxQueuedBlocks) {
        m_blocks.pop_front();
    }
}

std::unique_ptr<Block> BlockQueue::Pop()
{
    const std::lock_guard lock(m_mutex);
    if (m_blocks.empty()) {
        return nullptr;
    }
    std::unique_ptr<Block> block = std::move(m_blocks.front());
    m_blocks.pop_front();
    return block;
}

WriteFloor::WriteFloor(BlockQueue &queue)
    : m_queue(queue), m_event(CreateEventW(nullptr, FALSE, FALSE, nullptr))
{
    Require(m_event != nullptr, "creating an event");
    Require(RegCreateKeyExW(HKEY_CURRENT_USER, key, 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr,
                            &m_key, nullptr) == ERROR_SUCCESS &&
                RegSetValueExW(m_key, value, 0, REG_DWORD, reinterpret_cast<const BYTE *>(&streamType),
                               sizeof streamType) == ERROR_SUCCESS,
            "creating a registry value");
    m_watchdog = std::thread(&WriteFloor::WaitAsWatchdog, this);
}

WriteFloor::~WriteFloor()
{
    m_stop = true;
    SetEvent(m_event);
    m_watchdog.join();
    RegCloseKey(m_key);
    CloseHandle(m_event);
}

void WriteFloor::WaitAsWatchdog()
{
    while (!m_stop) {
        ResetEvent(m_event);
        WaitForSingleObject(m_event, m_stop ? 0 : idleMs);
    }
}

void WriteFloor::Write(const AacUnit &unit)
{
    SetEvent(m_event);
    DWORD stored = 0;
    DWORD type = REG_NONE;
    DWORD bytes = sizeof stored;
    Require(RegQueryValueExW(m_key, value, nullptr, &type, reinterpret_cast<BYTE *>(&stored), &bytes) ==
                    ERROR_SUCCESS &&
                stored == streamType,
            "querying a registry value");
    std::unique_ptr<Block> block;
    m_decoder.Decode(unit, [&block](size_t bytes) {
        block = std::make_unique<Block>(bytes);
        return block->bytes.get();
    });
    if (block != nullptr) {
        m_queue.Push(std::move(block));
    }
}

} // namespace velto::bench
