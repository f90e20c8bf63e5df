/* A small host that records: writes the default microphone's sound to an ADTS file.

   velto-recorder-example FILE.aac SECONDS

   LibVeltoAudioHandler.dll and its FFmpeg DLLs must be in the folder of this program.
   Exit codes: 0 recorded; 1 a call was refused; 2 wrong command line; 3 the module cannot be loaded; 4 the
   file cannot be written; 5 no unit came from the microphone. */
#include <windows.h>

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include "velto/audio_handler.h"

static const char microphone[] = VELTO_ID_MIC;
static const uint32_t microphoneLength = sizeof(microphone) - 1;

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

/* Writes one raw AAC-LC unit of 48000 Hz stereo behind its ADTS header; returns 0 if writing fails. */
static int WriteUnit(FILE *file, const uint8_t *unit, uint32_t bytes)
{
    const uint32_t length = bytes + 7; /* with the header */
    const uint8_t header[7] = {0xFF,   /* twelve set bits, MPEG-4, no checksum */
                               0xF1,
                               0x4C,                           /* AAC-LC, 48000 Hz */
                               (uint8_t)(0x80 | length >> 11), /* two channels, then the length */
                               (uint8_t)(length >> 3),
                               (uint8_t)((length & 7) << 5 | 0x1F),
                               0xFC};

    return fwrite(header, 1, sizeof(header), file) == sizeof(header) && fwrite(unit, 1, bytes, file) == bytes;
}

/* Reads and writes units for `seconds`. Returns the exit code. */
static int Record(const AudioHandlerTable *table, FILE *file, DWORD seconds)
{
    static uint8_t unit[VELTO_MAX_PACKET_BYTES];
    const ULONGLONG endMs = GetTickCount64() + 1000ULL * seconds;
    StreamFrameHeader header = {0, 0, 0};
    StreamFrame frame = {unit, {0}, &header};
    uint32_t packets = 0;
    int32_t result = VELTO_OK;

    while (result == VELTO_OK && GetTickCount64() < endMs) {
        header.size = VELTO_READ_SIZE; /* sets how long the call may wait; the buffer's size is not passed */
        result = table->ReadStreamBuffer(microphone, microphoneLength, NULL, &frame);
        if (result != VELTO_OK) {
            fprintf(stderr, "ReadStreamBuffer returned %d\n", (int)result);
        } else if (header.size == 0 || header.size == VELTO_READ_SIZE) {
            Sleep(5); /* no unit came, or capture has stopped; such a call may have returned at once */
        } else if (WriteUnit(file, unit, header.size)) {
            ++packets;
        } else {
            fprintf(stderr, "cannot write the file: %s\n", strerror(errno));
            return 4;
        }
    }
    printf("%u packets recorded\n", (unsigned)packets);
    if (result != VELTO_OK) {
        return 1;
    }
    return packets == 0 ? 5 : 0;
}

static int OpenAndRecord(const AudioHandlerTable *table, FILE *file, DWORD seconds)
{
    const AudioProfileList parameters = {0, 0, NULL}; /* required, but not read */
    const int32_t result = table->OpenAudioRecord(microphone, microphoneLength, NULL, NULL, &parameters);
    int exitCode;

    if (result != VELTO_OK) {
        fprintf(stderr, "OpenAudioRecord returned %d\n", (int)result);
        return 1;
    }
    exitCode = Record(table, file, seconds);
    table->CloseAudioRecord(microphone, microphoneLength);
    return exitCode;
}

int main(int argc, char **argv)
{
    AudioHandlerTable table;
    HMODULE module;
    FILE *file;
    char *end = NULL;
    unsigned long seconds = 0;
    int exitCode = 3;

    if (argc == 3) {
        seconds = strtoul(argv[2], &end, 10);
    }
    if (argc != 3 || end == argv[2] || *end != '\0') {
        fputs("usage: velto-recorder-example FILE.aac SECONDS\n", stderr);
        return 2;
    }
    file = fopen(argv[1], "wb");
    if (file == NULL) {
        fprintf(stderr, "cannot open %s: %s\n", argv[1], strerror(errno));
        return 4;
    }
    module = LoadAudioHandler();
    if (module != NULL) {
        if (GetTable(module, &table)) {
            exitCode = OpenAndRecord(&table, file, seconds);
        }
        FreeLibrary(module);
    }
    if (fclose(file) != 0 && exitCode == 0) {
        fprintf(stderr, "cannot write %s: %s\n", argv[1], strerror(errno));
        exitCode = 4;
    }
    return exitCode;
}
