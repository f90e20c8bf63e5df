/* A small host that plays: prints the module's devices, then plays an ADTS file (AAC-LC, 48000 Hz,
   stereo) on "speaker1".

   velto-host-example FILE.aac

   LibVeltoAudioHandler.dll and its FFmpeg DLLs must be in the folder of this program.
   Exit codes: 0 played; 1 nothing was played, or a call was refused; 2 wrong command line; 3 the module
   cannot be loaded; 4 the file cannot be opened. */
#include <windows.h>

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "velto/audio_handler.h"

static const char speaker[] = VELTO_ID_SPEAKER;
static const uint32_t speakerLength = sizeof(speaker) - 1;

/* The longest time from writing the last unit to the end of its sound: the module's full queue, 300 ms in the
   endpoint's buffer, and 300 ms for the mixer and driver of the system. */
#define END_MS (VELTO_QUEUE_UNITS * VELTO_UNIT_SAMPLES * 1000 / VELTO_SAMPLE_RATE_HZ + 300 + 300)

/* The length field of ADTS has 13 bits. */
#define MAX_ADTS_BYTES 8191

/* Loads the DLL by its full path, from the folder of this program. Windows searches for the DLLs that it
   needs in this folder and in the system's folder only. */
static HMODULE LoadAudioHandler(void)
{
    static const wchar_t name[] = L"LibVeltoAudioHandler.dll";
    static wchar_t path[32768]; /* the longest path that Windows allows */
    const DWORD room = sizeof(path) / sizeof(path[0]);
    DWORD length = GetModuleFileNameW(NULL, path, room);
    HMODULE module;

    while (length > 0 && path[length - 1] != L'\\') {
        --length;
    }
    if (length == 0 || length + sizeof(name) / sizeof(name[0]) > room) {
        fputs("cannot determine the folder of this program\n", stderr);
        return NULL;
    }
    wcscpy(path + length, name);
    module = LoadLibraryExW(path, NULL, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (module == NULL) {
        fprintf(stderr, "cannot load LibVeltoAudioHandler.dll from the folder of this program: error %lu\n",
                GetLastError());
    }
    return module;
}

/* Fills the table. Returns 0, after printing the reason, if the DLL has no entry or the entry returns an
 * error. */
static int GetTable(HMODULE module, AudioHandlerTable *table)
{
    VeltoGetAudioHandlerFunction getHandler = NULL;
    const FARPROC entry = GetProcAddress(module, VELTO_ENTRY_NAME);
    int32_t result;

    if (entry == NULL) {
        fprintf(stderr, "the DLL has no function " VELTO_ENTRY_NAME ": error %lu\n", GetLastError());
        return 0;
    }
    memcpy(&getHandler, &entry, sizeof(getHandler)); /* not a cast: GCC warns of one between these types */
    result = getHandler(table);
    if (result != VELTO_OK) {
        fprintf(stderr, VELTO_ENTRY_NAME " returned %d\n", (int)result);
        return 0;
    }
    return 1;
}

static void PrintCapabilities(const AudioHandlerTable *table)
{
    AudioCapabilityItem *list = NULL;
    uint32_t count = 0;
    uint32_t i;
    const int32_t result = table->GetAudioCapability(&list, &count);

    if (result != VELTO_OK) {
        fprintf(stderr, "GetAudioCapability returned %d\n", (int)result);
        return;
    }
    for (i = 0; i < count; ++i) {
        printf("%.*s: type %u, %u profile(s)\n", (int)list[i].nameLength, list[i].name,
               (unsigned)list[i].deviceType, (unsigned)list[i].profileCount);
    }
    table->Release(VELTO_RELEASE_CAPABILITIES, list, count);
}

/* Reads one ADTS frame, which is a header and a unit. Returns the size of the unit, or 0 at the end of the
   file or where it is damaged. */
static uint32_t ReadUnit(FILE *file, uint8_t *unit)
{
    uint8_t header[9];
    uint32_t headerBytes;
    uint32_t unitBytes;

    if (fread(header, 1, 7, file) != 7 || header[0] != 0xFF || (header[1] & 0xF6) != 0xF0) {
        return 0;
    }
    headerBytes = (header[1] & 1) != 0 ? 7 : 9;                                     /* 9: with a checksum */
    unitBytes = (header[3] & 3u) << 11 | (uint32_t)header[4] << 3 | header[5] >> 5; /* with the header */
    if (unitBytes <= headerBytes || fread(header + 7, 1, headerBytes - 7, file) != headerBytes - 7) {
        return 0;
    }
    unitBytes -= headerBytes;
    return fread(unit, 1, unitBytes, file) == unitBytes ? unitBytes : 0;
}

/* One stream, from the first unit to the last. */
typedef struct Stream {
    const AudioHandlerTable *table;
    ULONGLONG beginMs;
    uint32_t units;
    uint32_t refused;
} Stream;

/* Starts a stream: the module holds the first 5 units back and plays them together, so that later units may
   be late. Returns 0, after printing the reason, if the call was refused. */
static int StartStream(Stream *stream, const AudioHandlerTable *table)
{
    const AudioProfileEntry entries[] = {
        {VELTO_KEY_SAMPLE_RATE, sizeof(VELTO_KEY_SAMPLE_RATE) - 1, VELTO_SAMPLE_RATE_HZ},
        {VELTO_KEY_CHANNEL, sizeof(VELTO_KEY_CHANNEL) - 1, VELTO_CHANNEL_STEREO},
        {VELTO_KEY_FORMAT, sizeof(VELTO_KEY_FORMAT) - 1, VELTO_FORMAT_S16}};
    const AudioProfileList parameters = {sizeof(entries) / sizeof(entries[0]), 0, entries};
    const int32_t result = table->SetAudioParameter(speaker, speakerLength, NULL, NULL, &parameters);

    if (result != VELTO_OK) {
        fprintf(stderr, "SetAudioParameter returned %d\n", (int)result);
        return 0;
    }
    stream->table = table;
    stream->beginMs = GetTickCount64();
    stream->units = 0;
    stream->refused = 0;
    return 1;
}

/* Sends the next unit when it is due. Deadlines count from the start of the stream, so that the errors of
   single sleeps do not add up. The clock and Sleep have steps of up to 15.6 ms, which the held-back units
   cover. */
static void SendUnit(Stream *stream, uint8_t *unit, uint32_t bytes)
{
    const ULONGLONG dueMs =
        stream->beginMs + stream->units * (1000ULL * VELTO_UNIT_SAMPLES) / VELTO_SAMPLE_RATE_HZ;
    const ULONGLONG nowMs = GetTickCount64();
    StreamFrameHeader header = {3, bytes, 0}; /* 3: the sender's stream type for media */
    StreamFrame frame = {unit, {0}, &header};
    int32_t result;

    if (dueMs > nowMs) {
        Sleep((DWORD)(dueMs - nowMs));
    }
    result = stream->table->WriteStreamBuffer(speaker, speakerLength, NULL, &frame);
    ++stream->units;
    if (result != VELTO_OK) {
        if (stream->refused == 0) {
            fprintf(stderr, "WriteStreamBuffer returned %d\n", (int)result);
        }
        ++stream->refused;
    }
}

/* Ends a stream. The silent units make the module play a short stream that it still holds back, and leave no
   sound in the decoder that would be heard at the start of the next stream. */
static void EndStream(Stream *stream)
{
    uint8_t silence[] = VELTO_SILENT_UNIT;
    int i;

    for (i = 0; i < VELTO_CUSHION_UNITS; ++i) {
        SendUnit(stream, silence, sizeof(silence));
    }
    stream->table->CloseAudioTrack(speaker, speakerLength); /* stops nothing: queued units are still played */
}

static int Play(const AudioHandlerTable *table, FILE *file)
{
    static uint8_t unit[MAX_ADTS_BYTES];
    Stream stream;
    uint32_t unitsOfFile = 0; /* without the silent units at the end */
    uint32_t bytes;

    if (!StartStream(&stream, table)) {
        return 1;
    }
    for (bytes = ReadUnit(file, unit); bytes != 0; bytes = ReadUnit(file, unit)) {
        SendUnit(&stream, unit, bytes);
        ++unitsOfFile;
    }
    EndStream(&stream);
    Sleep(END_MS); /* the end of the process would cut the sound off */
    printf("%u units sent, %u refused\n", (unsigned)unitsOfFile, (unsigned)stream.refused);
    return unitsOfFile == 0 || stream.refused != 0 ? 1 : 0;
}

int main(int argc, char **argv)
{
    AudioHandlerTable table;
    HMODULE module;
    FILE *file;
    int exitCode = 3;

    if (argc != 2) {
        fputs("usage: velto-host-example FILE.aac\n", stderr);
        return 2;
    }
    file = fopen(argv[1], "rb");
    if (file == NULL) {
        fprintf(stderr, "cannot open %s: %s\n", argv[1], strerror(errno));
        return 4;
    }
    module = LoadAudioHandler();
    if (module != NULL) {
        if (GetTable(module, &table)) {
            PrintCapabilities(&table);
            exitCode = Play(&table, file);
        }
        FreeLibrary(module);
    }
    fclose(file);
    return exitCode;
}
