// Fuzzes the reading of files in velto-host. The input is the file, which is read and metered as for playing.
//
// Reading must end, no unit may be empty, its level must be a number or absent, and an error message must
// name the file.
#include "velto-host/portable/aac_reader.h"

#include <cmath>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include "effects.h"
#include "ffmpeg_messages.h"
#include "input.h"
#include "velto-host/portable/aac_format.h"

namespace {

using velto::host::AacFileError;
using velto::host::AacReader;
using velto_fuzz::Effect;
using velto_fuzz::Expect;

Effect filesOpened("files opened");
Effect filesRefused("files refused");
Effect unitsRead("units read");
Effect levelsMeasured("levels measured");
Effect damagesReported("damages reported");
Effect headersWritten("headers written and parsed");

// A file in memory, with a path.
class MemoryFile {
public:
    MemoryFile(const uint8_t *data, size_t size) : m_descriptor(memfd_create("input", MFD_CLOEXEC))
    {
        Expect(m_descriptor >= 0, "a file in memory");
        while (size > 0) {
            const ssize_t written = write(m_descriptor, data, size);
            Expect(written > 0, "the file is written");
            data += written;
            size -= static_cast<size_t>(written);
        }
    }
    ~MemoryFile() { close(m_descriptor); }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    std::string Path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

private:
    int m_descriptor;
};

void ReadAll(AacReader &reader)
{
    constexpr int maxUnits = 1 << 20; // more than a file of a megabyte can list
    const auto &stream = reader.Stream();
    Expect(stream.channels > 0, "a stream has channels");
    Expect(stream.UnitSeconds() > 0 && stream.UnitSeconds() < 1, "a unit lasts less than a second");
    Expect(!velto::host::ObjectTypeName(stream.objectType).empty(), "a type has a name");
    velto::host::LevelMeter meter(stream);
    std::vector<uint8_t> frame;
    int units = 0;
    for (;;) {
        Expect(++units < maxUnits, "a file ends");
        switch (reader.Read(frame)) {
        case AacReader::Outcome::UNIT:
            Expect(!frame.empty(), "a unit is not empty");
            unitsRead.Add();
            if (const auto level = meter.PeakDb(frame)) {
                Expect(std::isfinite(*level), "a level is a number");
                levelsMeasured.Add();
            }
            break;
        case AacReader::Outcome::END:
            return;
        default:
            Expect(!reader.Damage().empty(), "damage has a reason");
            damagesReported.Add();
            break;
        }
    }
}

// Parses an ADTS header at each byte, writes a header with the same values and parses this one.
void ReadHeaders(std::span<const uint8_t> bytes)
{
    for (; !bytes.empty(); bytes = bytes.subspan(1)) {
        const auto header = velto::host::ParseAdtsHeader(bytes);
        if (header) {
            Expect(header->frameBytes > header->headerBytes, "a header leaves room for a unit");
            const size_t unitBytes = header->frameBytes - header->headerBytes;
            const auto made =
                velto::host::MakeAdtsHeader(header->sampleRateHz, header->channelConfiguration, unitBytes);
            const auto again = velto::host::ParseAdtsHeader(made);
            Expect(made.empty() || (again && again->sampleRateHz == header->sampleRateHz &&
                                    again->channelConfiguration == header->channelConfiguration &&
                                    again->frameBytes == again->headerBytes + unitBytes),
                   "a written header is parsed to the same values");
            headersWritten.Add(!made.empty());
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    velto_fuzz::CountFFmpegMessages();
    ReadHeaders(std::span(data, size));
    const MemoryFile file(data, size);
    try {
        AacReader reader(file.Path());
        filesOpened.Add();
        ReadAll(reader);
    } catch (const AacFileError &error) {
        filesRefused.Add();
        Expect(std::string(error.what()).starts_with(file.Path() + ": "), "a message names the file");
    }
    return 0;
}
