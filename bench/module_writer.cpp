#include "bench/module_writer.h"

#include <cstring>
#include <stdexcept>

namespace velto::bench {
namespace {

constexpr uint32_t idLength = sizeof(VELTO_ID_SPEAKER) - 1;
constexpr int32_t streamType = 3;

} // namespace

ModuleWriter::ModuleWriter() : m_module(LoadLibraryW(L"LibVeltoAudioHandler.dll"))
{
    const FARPROC entry = m_module != nullptr ? GetProcAddress(m_module, VELTO_ENTRY_NAME) : nullptr;
    if (entry == nullptr) {
        throw std::runtime_error("LibVeltoAudioHandler.dll is not next to this program");
    }
    const auto getTable = reinterpret_cast<VeltoGetAudioHandlerFunction>(reinterpret_cast<void *>(entry));
    if (getTable(&m_table) != VELTO_OK) {
        throw std::runtime_error("the module did not fill the table");
    }
}

ModuleWriter::~ModuleWriter()
{
    m_table.CloseAudioTrack(VELTO_ID_SPEAKER, idLength);
    FreeLibrary(m_module);
}

int32_t ModuleWriter::Write(AacUnit &unit)
{
    StreamFrameHeader header{streamType, static_cast<uint32_t>(unit.size()), 0};
    StreamFrame record{unit.data(), {}, &header};
    return m_table.WriteStreamBuffer(VELTO_ID_SPEAKER, idLength, nullptr, &record);
}

} // namespace velto::bench
