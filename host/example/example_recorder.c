/* The smallest host that records: writes the default microphone's sound to an ADTS file.
   velto-recorder-example FILE.aac SECONDS; LibVeltoAudioHandler.dll stands beside the program or in the path.
 */
#include <windows.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "velto/audio_handler.h"

/* How much is asked for. The module waits for a packet as long as so much PCM lasts, 22 ms here. No
   packet has so many bytes: a size that comes back unchanged says that nothing was captured. */
#define ASKED_FOR 3840u

static const char microphone[] = VELTO_ID_MIC;
static const uint32_t microphoneLength = sizeof(microphone) - 1;

/* Writes one raw AAC-LC unit of 48000 Hz stereo behind its ADTS header. */
static void WriteUnit(FILE *file, const uint8_t *unit, uint32_t bytes)
{
    const uint32_t all = bytes + 7;
    const uint8_t header[7] = {
        0xFF, 0xF1, 0x4C, (uint8_t)(0x80 | all >> 11), (uint8_t)(all >> 3), (uint8_t)((all & 7) << 5 | 0x1F),
        0xFC};
    fwrite(header, 1, sizeof(header), file);
    fwrite(unit, 1, bytes, file);
}

int main(int argc, char **argv)
{
    static uint8_t unit[8192];
    const AudioProfileList list = {0, 0, NULL}; /* has to be there; nothing is read of it */
    StreamFrameHeader header = {0, 0, 0};
    StreamFrame frame = {unit, {0}, &header};
    AudioHandlerTable table;
    VeltoGetAudioHandlerFunction getHandler = NULL;
    FARPROC entry;
    uint32_t packets = 0;
    DWORD end;
    FILE *file = argc == 3 ? fopen(argv[1], "wb") : NULL;
    HMODULE module = LoadLibraryW(L"LibVeltoAudioHandler.dll");
    if (file == NULL || module == NULL)
        return fputs("usage: velto-recorder-example FILE.aac SECONDS, beside the DLL\n", stderr), 2;
    entry = GetProcAddress(module, VELTO_ENTRY_NAME);
    memcpy(&getHandler, &entry, sizeof(getHandler));
    if (getHandler == NULL || getHandler(&table) != VELTO_OK) return fputs("no such module\n", stderr), 3;
    table.OpenAudioRecord(microphone, microphoneLength, NULL, NULL, &list);
    for (end = GetTickCount() + 1000u * (DWORD)atoi(argv[2]); (LONG)(end - GetTickCount()) > 0;) {
        header.size = ASKED_FOR;
        table.ReadStreamBuffer(microphone, microphoneLength, NULL, &frame);
        if (header.size == 0 || header.size == ASKED_FOR) {
            Sleep(5); /* the read need not have waited */
        } else {
            WriteUnit(file, unit, header.size);
            ++packets;
        }
    }
    table.CloseAudioRecord(microphone, microphoneLength);
    printf("%u packets recorded\n", (unsigned)packets);
    fclose(file);
    FreeLibrary(module);
    return packets == 0;
}
