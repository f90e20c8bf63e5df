/* The smallest host that plays: lists the devices, then plays an ADTS file of 48000 Hz on "speaker1".
   velto-host-example FILE; LibVeltoAudioHandler.dll stands beside the program or in the path. */
#include <windows.h>

#include <stdio.h>
#include <string.h>

#include "velto/audio_handler.h"

static const char speaker[] = VELTO_ID_SPEAKER;
static const uint32_t speakerLength = sizeof(speaker) - 1;

static void PrintCapabilities(const AudioHandlerTable *table)
{
    AudioCapabilityItem *list = NULL;
    uint32_t count = 0, i;
    if (table->GetAudioCapability(&list, &count) != VELTO_OK) return;
    for (i = 0; i < count; ++i) {
        printf("%.*s: type %u, %u profile(s)\n", (int)list[i].nameLength, list[i].name,
               (unsigned)list[i].deviceType, (unsigned)list[i].profileCount);
    }
    table->Release(VELTO_RELEASE_CAPABILITIES, list, count);
}

/* Reads one ADTS frame; returns the bytes behind its header, 0 at the end or on damage. */
static uint32_t ReadFrame(FILE *file, uint8_t *payload)
{
    uint8_t header[9];
    uint32_t headerBytes, frameBytes;
    if (fread(header, 1, 7, file) != 7 || header[0] != 0xFF || (header[1] & 0xF6) != 0xF0) return 0;
    headerBytes = (header[1] & 1) != 0 ? 7 : 9; /* 9: with a checksum */
    frameBytes = (header[3] & 3u) << 11 | (uint32_t)header[4] << 3 | header[5] >> 5;
    if (frameBytes <= headerBytes || fread(header + 7, 1, headerBytes - 7, file) != headerBytes - 7) return 0;
    return fread(payload, 1, frameBytes - headerBytes, file) == frameBytes - headerBytes
               ? frameBytes - headerBytes
               : 0;
}

int main(int argc, char **argv)
{
    static uint8_t payload[8192]; /* the length field has 13 bits */
    AudioHandlerTable table;
    StreamFrameHeader header = {3, 0, 0};
    StreamFrame frame = {payload, {0}, &header};
    VeltoGetAudioHandlerFunction getHandler = NULL;
    FARPROC entry;
    uint32_t frames = 0, refused = 0;
    DWORD begin;
    FILE *file = argc == 2 ? fopen(argv[1], "rb") : NULL;
    HMODULE module = LoadLibraryW(L"LibVeltoAudioHandler.dll");
    if (file == NULL || module == NULL)
        return fputs("usage: velto-host-example FILE.aac, beside the DLL\n", stderr), 2;
    entry = GetProcAddress(module, VELTO_ENTRY_NAME);
    memcpy(&getHandler, &entry, sizeof(getHandler));
    if (getHandler == NULL || getHandler(&table) != VELTO_OK) return fputs("no such module\n", stderr), 3;
    PrintCapabilities(&table);
    for (begin = GetTickCount(); (header.size = ReadFrame(file, payload)) != 0; ++frames) {
        LONG early =
            (LONG)(begin + (DWORD)(frames * 64ULL / 3) - GetTickCount()); /* 1024 / 48000 s = 64 / 3 ms */
        if (early > 0) Sleep((DWORD)early);
        refused += table.WriteStreamBuffer(speaker, speakerLength, NULL, &frame) != VELTO_OK;
    }
    table.CloseAudioTrack(speaker, speakerLength);
    Sleep(1100); /* the module's queue and the sound device still hold up to about a second */
    printf("%u frames sent, %u refused\n", (unsigned)frames, (unsigned)refused);
    fclose(file);
    FreeLibrary(module);
    return frames == 0 || refused != 0;
}
