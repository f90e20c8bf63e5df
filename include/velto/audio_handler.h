/*
 * The C interface between a VELTO host process and LibVeltoAudioHandler.
 *
 * A host loads the DLL, looks up "VELTOGetAudioHandler", hands it an
 * AudioHandlerTable of its own and from then on calls through the table.
 * The header compiles as C99 and as C++.
 *
 * Threads: every slot may be called from any host thread, except that
 * VELTOGetAudioHandler and RegisterListener write shared state without a lock
 * and are therefore called before streaming starts. No slot raises an exception.
 *
 * Ownership: every record passed in stays the host's and is read only during the
 * call. The one record that the module hands out is the capability list, given
 * back with Release.
 *
 * Device ids are passed as a NUL-terminated string plus its length. The length
 * must equal strlen(id); ids are compared byte for byte, case-sensitive.
 */
#ifndef VELTO_AUDIO_HANDLER_H
#define VELTO_AUDIO_HANDLER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Device ids and their type codes ------------------------------------ */

#define VELTO_ID_SPEAKER "speaker1"            /* media sound, played on the PC       */
#define VELTO_ID_MIC "mic1"                    /* the PC's microphone                 */
#define VELTO_ID_MODEM_SPEAKER "ModemSpeaker1" /* call sound, played on the PC        */
#define VELTO_ID_MODEM_MIC "ModemMic1"         /* the PC's microphone, during a call  */

enum {
    VELTO_DEVICE_TYPE_SPEAKER = 0,
    VELTO_DEVICE_TYPE_MIC = 1,
    VELTO_DEVICE_TYPE_MODEM_SPEAKER = 2,
    VELTO_DEVICE_TYPE_MODEM_MIC = 3
};

/* ---- Status codes --------------------------------------------------------- */

enum {
    VELTO_OK = 0,                  /* success, and also: nothing to do                      */
    VELTO_ERROR_NULL_POINTER = -3, /* a record lacks a required pointer, or no memory       */
    VELTO_ERROR_INVALID = -2000    /* invalid argument, or the speaker path failed to start */
};

/* ---- Events sent through AudioListener.AudioStateCallback ------------------ */

enum {
    VELTO_EVENT_TRACK_CLOSED = 3,  /* CloseAudioTrack accepted an id   */
    VELTO_EVENT_PARAMETERS_SET = 4 /* SetAudioParameter accepted a list */
};

/* ---- Release types ---------------------------------------------------------- */

enum {
    VELTO_RELEASE_CAPABILITIES = 1 /* the list of GetAudioCapability; no other type frees anything */
};

/* ---- Parameter keys and value codes ------------------------------------------ */

#define VELTO_KEY_SAMPLE_RATE "sampleRate" /* value: the rate in Hz, taken as is */
#define VELTO_KEY_CHANNEL "channel"        /* value: VELTO_CHANNEL_...           */
#define VELTO_KEY_FORMAT "format"          /* value: VELTO_FORMAT_...            */
#define VELTO_KEY_CODEC "codec"            /* accepted and ignored               */

enum {
    VELTO_CHANNEL_MONO = 1,       /* 1 channel  */
    VELTO_CHANNEL_STEREO = 3,     /* 2 channels */
    VELTO_CHANNEL_STEREO_IN = 12, /* 2 channels */
    VELTO_CHANNEL_MONO_IN = 16    /* 1 channel  */
};

enum {
    VELTO_FORMAT_S16 = 1, /* 16 bits per sample */
    VELTO_FORMAT_U8 = 2,  /*  8 bits per sample */
    VELTO_FORMAT_S32 = 3, /* 32 bits per sample */
    VELTO_FORMAT_S24 = 4  /* 24 bits per sample */
};

enum {
    VELTO_CODEC_AAC = 0 /* raw AAC-LC access units, "audio/mp4a-latm" */
};

/* ---- Records -------------------------------------------------------------------- */

/* One sample configuration of a device. 12 bytes. */
typedef struct AudioCapabilityProfile {
    uint32_t sampleRate; /* Hz                    */
    uint32_t channel;    /* VELTO_CHANNEL_... code */
    uint32_t format;     /* VELTO_FORMAT_... code  */
} AudioCapabilityProfile;

/* One device. 64 bytes; allocated by the module, given back with Release. */
typedef struct AudioCapabilityItem {
    char *name;          /* 64-byte buffer; nameLength is the only reliable end */
    uint32_t nameLength; /* bytes, without terminator                           */
    uint32_t deviceType; /* VELTO_DEVICE_TYPE_...                               */
    uint32_t profileCount;
    uint32_t padding0;
    AudioCapabilityProfile *profiles; /* profileCount entries */
    uint32_t codecCount;
    uint32_t padding1;
    uint32_t *codecs; /* codecCount entries, VELTO_CODEC_... */
    uint8_t reserved[16];
} AudioCapabilityItem;

/* One parameter. 16 bytes. */
typedef struct AudioProfileEntry {
    const char *key;    /* NUL-terminated, VELTO_KEY_... */
    uint32_t keyLength; /* not read by the module        */
    uint32_t value;
} AudioProfileEntry;

/* A list of parameters. */
typedef struct AudioProfileList {
    uint32_t count;
    uint32_t padding0;
    const AudioProfileEntry *entries; /* count entries */
} AudioProfileList;

/* Header of a frame, both directions. 12 bytes. */
typedef struct StreamFrameHeader {
    int32_t streamType; /* write: the remote stream's type; read: not used */
    uint32_t size;      /* write: bytes at data. read: in, bytes wanted; out, bytes delivered */
    uint32_t reserved;
} StreamFrameHeader;

/* One frame. write: one AAC frame; read: the buffer that receives one packet,
   at least as large as the largest packet that the encoder can produce. */
typedef struct StreamFrame {
    uint8_t *data;
    uint8_t reserved[16];
    StreamFrameHeader *header; /* required */
} StreamFrame;

/* Called on the host's own calling thread, outside the module's locks. */
typedef void (*VeltoAudioStateCallback)(const char *deviceId, uint32_t idLength, int32_t eventCode);

/* The host's listener. The module copies both fields and keeps no pointer to the record. */
typedef struct AudioListener {
    VeltoAudioStateCallback AudioStateCallback; /* may be null */
    void *reserved;                             /* stored, never called */
} AudioListener;

/* ---- The table -------------------------------------------------------------------- */

/*
 * Eleven pointer-sized slots, 88 bytes, filled by VELTOGetAudioHandler.
 *
 * GetAudioCapability(list, count)
 *     Stores 4 in *count and a list of four items in *list, in the order speaker1,
 *     ModemSpeaker1, ModemMic1, mic1. VELTO_OK; VELTO_ERROR_INVALID for a null
 *     argument; VELTO_ERROR_NULL_POINTER without memory (*list is then to be ignored).
 *     Give the list back with Release(VELTO_RELEASE_CAPABILITIES, list, 4).
 *
 * NoOperation1, NoOperation10
 *     Reserved positions; return 0 whatever is passed.
 *
 * SetAudioParameter(id, idLength, unused, unused, parameters)
 *     Sets rate, channels and bits per sample for both speakers; what the list omits
 *     returns to 48000 Hz, 2 channels, 16 bits. They reach the renderer when it is next
 *     opened. Re-arms the start-up cushion of the named speaker and sends
 *     VELTO_EVENT_PARAMETERS_SET. VELTO_OK, or VELTO_ERROR_INVALID for an id whose
 *     length does not match or an empty list.
 *
 * WriteStreamBuffer(id, idLength, unused, frame)
 *     Decodes and queues one AAC frame for "speaker1" or "ModemSpeaker1"; the first call
 *     opens the sound device. Decoding runs on the calling thread and frame->data may be
 *     reused when the call returns. VELTO_OK also for a frame that was dropped (the module
 *     was busy initialising, the bytes are not AAC, the id is another device's);
 *     VELTO_ERROR_INVALID for an id whose length does not match, a null frame or header.
 *
 * CloseAudioTrack(id, idLength)
 *     Ends a track: sends VELTO_EVENT_TRACK_CLOSED. What is queued is still played; the
 *     sound device is released after four minutes without a frame.
 *     VELTO_OK or VELTO_ERROR_INVALID.
 *
 * OpenAudioRecord(id, idLength, unused, unused, parameters)
 *     Opens the PC's default microphone. Any id of the right length and any non-null list
 *     are accepted. VELTO_OK also when there is no microphone: reads then give nothing
 *     until one becomes the default. VELTO_ERROR_INVALID for the arguments. A recording
 *     that is open already is replaced but not closed: close it first.
 *
 * ReadStreamBuffer(id, idLength, unused, frame)
 *     Fetches at most one AAC-LC access unit (48000 Hz, stereo, at most 1536 bytes) into
 *     frame->data and its length into frame->header->size (0: none at this time; left as
 *     it was: capture stands still). On entry the size tells only how long the call may
 *     wait, 20 ms for 3840; the buffer must have room for a whole unit whatever it says.
 *     VELTO_OK; VELTO_ERROR_NULL_POINTER when frame, header or data is null;
 *     VELTO_ERROR_INVALID for an id whose length does not match.
 *
 * CloseAudioRecord(id, idLength)
 *     Closes the microphone: waits until its threads have ended, up to a tenth of a
 *     second. A read that is still waiting is woken and waited for. VELTO_OK, also when
 *     nothing is open, or VELTO_ERROR_INVALID.
 *
 * Release(type, block, count)
 *     Frees a block that the module handed out; type VELTO_RELEASE_CAPABILITIES only.
 *
 * RegisterListener(listener)
 *     Replaces the listener; register a record of null fields to remove it.
 *     VELTO_OK, or VELTO_ERROR_INVALID for null.
 */
typedef struct AudioHandlerTable {
    int32_t (*GetAudioCapability)(AudioCapabilityItem **list, uint32_t *count);
    int32_t (*NoOperation1)(void);
    int32_t (*SetAudioParameter)(const char *id, uint32_t idLength, void *unused1, void *unused2,
                                 const AudioProfileList *parameters);
    int32_t (*WriteStreamBuffer)(const char *id, uint32_t idLength, void *unused, StreamFrame *frame);
    int32_t (*CloseAudioTrack)(const char *id, uint32_t idLength);
    int32_t (*OpenAudioRecord)(const char *id, uint32_t idLength, void *unused1, void *unused2,
                               const AudioProfileList *parameters);
    int32_t (*ReadStreamBuffer)(const char *id, uint32_t idLength, void *unused, StreamFrame *frame);
    int32_t (*CloseAudioRecord)(const char *id, uint32_t idLength);
    void (*Release)(uint32_t type, void *block, uint32_t count);
    int32_t (*RegisterListener)(const AudioListener *listener);
    int32_t (*NoOperation10)(void);
} AudioHandlerTable;

/* The module's one export. Fills all 88 bytes of the table; opens no device and starts no
   thread. VELTO_OK, or VELTO_ERROR_INVALID for a null table. Look it up with
   GetProcAddress(module, VELTO_ENTRY_NAME) and cast it to VeltoGetAudioHandlerFunction. */
#define VELTO_ENTRY_NAME "VELTOGetAudioHandler"
typedef int32_t (*VeltoGetAudioHandlerFunction)(AudioHandlerTable *table);

#ifdef __cplusplus
}
#endif

/* ---- The layout, held at compile time ------------------------------------------------ */

#ifdef __cplusplus
#define VELTO_LAYOUT(name, condition) static_assert(condition, #name)
#else
#define VELTO_LAYOUT(name, condition) typedef char velto_layout_##name[(condition) ? 1 : -1]
#endif

VELTO_LAYOUT(pointer_size, sizeof(void *) == 8);
VELTO_LAYOUT(profile_size, sizeof(AudioCapabilityProfile) == 12);
VELTO_LAYOUT(item_size, sizeof(AudioCapabilityItem) == 64);
VELTO_LAYOUT(item_name, offsetof(AudioCapabilityItem, name) == 0);
VELTO_LAYOUT(item_name_length, offsetof(AudioCapabilityItem, nameLength) == 8);
VELTO_LAYOUT(item_device_type, offsetof(AudioCapabilityItem, deviceType) == 12);
VELTO_LAYOUT(item_profile_count, offsetof(AudioCapabilityItem, profileCount) == 16);
VELTO_LAYOUT(item_profiles, offsetof(AudioCapabilityItem, profiles) == 24);
VELTO_LAYOUT(item_codec_count, offsetof(AudioCapabilityItem, codecCount) == 32);
VELTO_LAYOUT(item_codecs, offsetof(AudioCapabilityItem, codecs) == 40);
VELTO_LAYOUT(item_reserved, offsetof(AudioCapabilityItem, reserved) == 48);
VELTO_LAYOUT(entry_size, sizeof(AudioProfileEntry) == 16);
VELTO_LAYOUT(entry_key_length, offsetof(AudioProfileEntry, keyLength) == 8);
VELTO_LAYOUT(entry_value, offsetof(AudioProfileEntry, value) == 12);
VELTO_LAYOUT(list_size, sizeof(AudioProfileList) == 16);
VELTO_LAYOUT(list_entries, offsetof(AudioProfileList, entries) == 8);
VELTO_LAYOUT(header_size, sizeof(StreamFrameHeader) == 12);
VELTO_LAYOUT(header_bytes, offsetof(StreamFrameHeader, size) == 4);
VELTO_LAYOUT(frame_size, sizeof(StreamFrame) == 32);
VELTO_LAYOUT(frame_header, offsetof(StreamFrame, header) == 24);
VELTO_LAYOUT(listener_size, sizeof(AudioListener) == 16);
VELTO_LAYOUT(table_size, sizeof(AudioHandlerTable) == 88);
VELTO_LAYOUT(table_write, offsetof(AudioHandlerTable, WriteStreamBuffer) == 24);
VELTO_LAYOUT(table_last, offsetof(AudioHandlerTable, NoOperation10) == 80);

#undef VELTO_LAYOUT

#endif
