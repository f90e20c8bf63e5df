/* A host in Visual C++'s ABI, without Windows' headers and without a C runtime: it links the module's and
   kernel32's import libraries, prints the names of the module's devices and what a refused call returns. The
   same in C and C++. */
#include "velto/audio_handler.h"

#ifdef __cplusplus
extern "C" {
#endif
__declspec(dllimport) void *__stdcall GetStdHandle(unsigned long which);
__declspec(dllimport) int __stdcall WriteFile(void *file, const void *data, unsigned long bytes,
                                              unsigned long *written, void *overlapped);
__declspec(dllimport) void __stdcall ExitProcess(unsigned int code);
void mainCRTStartup(void);
#ifdef __cplusplus
}
#endif

static void Print(const char *text, uint32_t bytes)
{
    unsigned long written = 0;
    WriteFile(GetStdHandle((unsigned long)-11), text, bytes, &written, NULL);
}

static int eventSeen = 0;

static void OnEvent(const char *deviceId, uint32_t idLength, int32_t eventCode)
{
    eventSeen = eventCode == VELTO_EVENT_PARAMETERS_SET;
    Print(deviceId, idLength);
    Print("\n", 1);
}

/* The returned value shows which step failed. */
static unsigned int Run(void)
{
    static const char key[] = VELTO_KEY_SAMPLE_RATE;
    AudioHandlerTable table;
    AudioListener listener;
    AudioProfileEntry rate;
    AudioProfileList parameters;
    StreamFrame frame;
    AudioCapabilityItem *list = NULL;
    uint32_t count = 0;
    uint32_t i;

    if (VELTOGetAudioHandler(&table) != VELTO_OK) {
        return 1;
    }
    if (table.GetAudioCapability(&list, &count) != VELTO_OK || count != 4) {
        return 2;
    }
    for (i = 0; i < count; ++i) {
        if (list[i].deviceType > VELTO_DEVICE_TYPE_MODEM_MIC || list[i].profileCount != 1 ||
            list[i].profiles[0].sampleRate != VELTO_SAMPLE_RATE_HZ || list[i].codecs[0] != VELTO_CODEC_AAC) {
            return 3;
        }
        Print(list[i].name, list[i].nameLength);
        Print("\n", 1);
    }
    table.Release(VELTO_RELEASE_CAPABILITIES, list, count);

    listener.AudioStateCallback = OnEvent;
    listener.reserved = NULL;
    rate.key = key;
    rate.keyLength = sizeof(key) - 1;
    rate.value = VELTO_SAMPLE_RATE_HZ;
    parameters.count = 1;
    parameters.padding0 = 0;
    parameters.entries = &rate;
    if (table.RegisterListener(&listener) != VELTO_OK ||
        table.SetAudioParameter(VELTO_ID_SPEAKER, 8, NULL, NULL, &parameters) != VELTO_OK || !eventSeen) {
        return 4;
    }
    frame.data = NULL;
    frame.header = NULL;
    if (table.ReadStreamBuffer(VELTO_ID_MIC, 4, NULL, &frame) != VELTO_ERROR_NULL_POINTER) {
        return 5;
    }
    return 0;
}

void mainCRTStartup(void)
{
    ExitProcess(Run());
}
