/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The C interface between a VELTO host process and LibVeltoAudioHandler.
 *
 * The module turns the PC's loudspeaker and microphone into audio devices of a remote phone. A host
 * loads the DLL, calls VELTOGetAudioHandler() once to fill its own AudioHandlerTable, and makes
 * every later call through this table. The header compiles as C99 or later and C++11 or later.
 *
 * Terms.
 * - unit: one AAC-LC access unit: 1024 samples per channel, 21.3 ms at 48000 Hz
 * - packet: one unit from the microphone
 * - frame: a StreamFrame record, which carries one unit across the table
 * - block: one decoded unit: 4096 bytes of PCM on the way to the loudspeaker
 * - buffer: the host's memory at StreamFrame.data
 * - stream: the units of one sound, from the first to the last
 *
 * Speaker life cycle. The first write starts both speakers, and both are released together.
 *
 *     load --> released --WriteStreamBuffer--> started --4 minutes without a write--> released
 *
 *     SetAudioParameter    start of a stream: the next 5 blocks are held back, then played together
 *     WriteStreamBuffer    one unit every 21.3 ms
 *     WriteStreamBuffer    end of a stream: 5 silent units (VELTO_SILENT_UNIT)
 *     CloseAudioTrack      sends an event; queued blocks are still played
 *
 * Microphone life cycle, one recording at a time
 *
 *     closed --OpenAudioRecord--> open --CloseAudioRecord--> closed
 *
 *     ReadStreamBuffer     at most one unit for each call; 46.9 units arrive in a second
 *
 * Threads. The comment of each function has one of these tags:
 * - [any thread, overlapping]: any host thread, also while other calls run on other threads
 * - [one at a time]: any host thread, but no two calls with this tag at once
 * - [before streaming]: before the first call of WriteStreamBuffer or OpenAudioRecord
 *
 * Host threads need not initialise COM. No function throws an exception. Each function leaves the COM
 * apartment and the last error (GetLastError) of the calling thread as they were.
 *
 * Ownership. Every record that a host passes remains the host's; the module reads it during the call only.
 * The capability list is the only memory that the module hands out.
 *
 * Device ids. An id is a NUL-terminated string plus its length; the length must equal strlen(id).
 * The module compares ids byte for byte, case-sensitive.
 *
 * A complete host that plays one second of silence on the media speaker:
 *
 * @code{.c}
 * #include <windows.h>
 * #include <string.h>
 * #include <wchar.h>
 *
 * #include "velto/audio_handler.h"
 *
 * int main(void)
 * {
 *     static const uint8_t silence[] = VELTO_SILENT_UNIT;
 *     const AudioProfileEntry rate = {VELTO_KEY_SAMPLE_RATE, 10, VELTO_SAMPLE_RATE_HZ};
 *     const AudioProfileList parameters = {1, 0, &rate};
 *     StreamFrameHeader header = {0, sizeof silence, 0};
 *     StreamFrame frame = {(uint8_t *)silence, {0}, &header};
 *     VeltoGetAudioHandlerFunction getHandler = NULL;
 *     AudioHandlerTable table;
 *     FARPROC entry;
 *     HMODULE module;
 *     wchar_t path[MAX_PATH];
 *     int unit;
 *
 *     // The DLL and its FFmpeg DLLs are in the folder of this program.
 *     DWORD length = GetModuleFileNameW(NULL, path, MAX_PATH);
 *     while (length > 0 && path[length - 1] != L'\\') {
 *         --length;
 *     }
 *     if (length == 0 || length + 25 > MAX_PATH) {
 *         return 1;
 *     }
 *     wcscpy(path + length, L"LibVeltoAudioHandler.dll");
 *     module = LoadLibraryExW(path, NULL, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
 *     if (module == NULL) {
 *         return 1;
 *     }
 *     entry = GetProcAddress(module, VELTO_ENTRY_NAME);
 *     memcpy(&getHandler, &entry, sizeof getHandler);
 *     if (getHandler == NULL || getHandler(&table) != VELTO_OK) {
 *         return 1;
 *     }
 *     table.SetAudioParameter(VELTO_ID_SPEAKER, 8, NULL, NULL, &parameters);
 *     for (unit = 0; unit < 47; ++unit) {
 *         table.WriteStreamBuffer(VELTO_ID_SPEAKER, 8, NULL, &frame);
 *         Sleep(21); // enough for silence; for sound, wait for deadlines 1024 / 48000 s apart
 *     }
 *     table.CloseAudioTrack(VELTO_ID_SPEAKER, 8);
 *     FreeLibrary(module);
 *     return 0;
 * }
 * @endcode
 */
#ifndef VELTO_AUDIO_HANDLER_H
#define VELTO_AUDIO_HANDLER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Version of this header. It grows when something is added; layouts and codes never change. */
#define VELTO_HEADER_VERSION 1

/* ---- Device ids and their type codes ------------------------------------------------------- */

#define VELTO_ID_SPEAKER "speaker1"            /**< media sound, played on the PC      */
#define VELTO_ID_MIC "mic1"                    /**< the PC's microphone                */
#define VELTO_ID_MODEM_SPEAKER "ModemSpeaker1" /**< call sound, played on the PC       */
#define VELTO_ID_MODEM_MIC "ModemMic1"         /**< the PC's microphone, during a call */

/** AudioCapabilityItem.deviceType. */
enum {
    VELTO_DEVICE_TYPE_SPEAKER = 0,
    VELTO_DEVICE_TYPE_MIC = 1,
    VELTO_DEVICE_TYPE_MODEM_SPEAKER = 2,
    VELTO_DEVICE_TYPE_MODEM_MIC = 3
};

/* ---- Streams ------------------------------------------------------------------------------- */

#define VELTO_SAMPLE_RATE_HZ 48000  /**< of every stream, both directions                         */
#define VELTO_CHANNELS 2            /**< of every stream, both directions                         */
#define VELTO_UNIT_SAMPLES 1024     /**< per channel in one unit: 21.3 ms                         */
#define VELTO_CUSHION_UNITS 5       /**< held back at the start of a stream, then played together */
#define VELTO_QUEUE_UNITS 20        /**< most that wait for the loudspeaker; more drop the oldest */
#define VELTO_MAX_PACKET_BYTES 1536 /**< the largest unit that the microphone delivers            */
/** A StreamFrameHeader.size for reading: the call waits up to 22 ms for a unit. No unit has so many bytes, so
    a size that is unchanged after the call means that capture has stopped. */
#define VELTO_READ_SIZE 3840

/** Initialiser of a byte array: one silent unit in stereo, for the end of a stream. */
/* clang-format off */
#define VELTO_SILENT_UNIT {0x21, 0x00, 0x00, 0x00, 0x00, 0x1C}
/* clang-format on */

/* ---- Status codes -------------------------------------------------------------------------- */

enum {
    /** Done, or deliberately nothing done: see each slot. */
    VELTO_OK = 0,
    /** A record lacks a required pointer (ReadStreamBuffer), or no memory (GetAudioCapability). */
    VELTO_ERROR_NULL_POINTER = -3,
    /** A wrong argument, or no memory or no thread for the call. A loudspeaker or microphone that fails to
        start does not cause this code. */
    VELTO_ERROR_INVALID = -2000
};

/* ---- Events sent through AudioListener.AudioStateCallback ----------------------------------- */

enum {
    VELTO_EVENT_TRACK_CLOSED = 3,  /**< CloseAudioTrack returned VELTO_OK for this id   */
    VELTO_EVENT_PARAMETERS_SET = 4 /**< SetAudioParameter returned VELTO_OK for this id */
};

/* ---- Release types ------------------------------------------------------------------------- */

enum {
    VELTO_RELEASE_CAPABILITIES = 1 /**< the list of GetAudioCapability; no other type frees anything */
};

/* ---- Parameter keys and value codes -------------------------------------------------------- */

#define VELTO_KEY_SAMPLE_RATE "sampleRate" /**< value: a rate in Hz          */
#define VELTO_KEY_CHANNEL "channel"        /**< value: VELTO_CHANNEL_... code */
#define VELTO_KEY_FORMAT "format"          /**< value: VELTO_FORMAT_... code  */
#define VELTO_KEY_CODEC "codec"            /**< accepted and ignored         */

enum {
    VELTO_CHANNEL_MONO = 1,       /**< 1 channel  */
    VELTO_CHANNEL_STEREO = 3,     /**< 2 channels */
    VELTO_CHANNEL_STEREO_IN = 12, /**< 2 channels */
    VELTO_CHANNEL_MONO_IN = 16    /**< 1 channel  */
};

enum {
    VELTO_FORMAT_S16 = 1, /**< 16 bits per sample */
    VELTO_FORMAT_U8 = 2,  /**<  8 bits per sample */
    VELTO_FORMAT_S32 = 3, /**< 32 bits per sample */
    VELTO_FORMAT_S24 = 4  /**< 24 bits per sample */
};

enum {
    VELTO_CODEC_AAC = 0 /**< AAC-LC access units, "audio/mp4a-latm" */
};

/* ---- Records ------------------------------------------------------------------------------- */

/** One sample configuration of a device. 12 bytes. */
typedef struct AudioCapabilityProfile {
    uint32_t sampleRate; /**< Hz                     */
    uint32_t channel;    /**< VELTO_CHANNEL_... code */
    uint32_t format;     /**< VELTO_FORMAT_... code  */
} AudioCapabilityProfile;

/** One device. 64 bytes; allocated by the module, freed by Release. */
typedef struct AudioCapabilityItem {
    char *name;                       /**< 64 bytes; ends at nameLength, not at a NUL */
    uint32_t nameLength;              /**< bytes, without a terminator                */
    uint32_t deviceType;              /**< VELTO_DEVICE_TYPE_...                      */
    uint32_t profileCount;            /**< 1                                          */
    uint32_t padding0;                /**< 0                                          */
    AudioCapabilityProfile *profiles; /**< profileCount entries                       */
    uint32_t codecCount;              /**< 1                                          */
    uint32_t padding1;                /**< 0                                          */
    uint32_t *codecs;                 /**< codecCount entries, VELTO_CODEC_...        */
    uint8_t reserved[16];             /**< 0                                          */
} AudioCapabilityItem;

/** One parameter. 16 bytes. */
typedef struct AudioProfileEntry {
    const char *key;    /**< NUL-terminated, VELTO_KEY_... */
    uint32_t keyLength; /**< not read by the module        */
    uint32_t value;     /**< Hz, or a code of the key      */
} AudioProfileEntry;

/** A list of parameters. 16 bytes. */
typedef struct AudioProfileList {
    uint32_t count;                   /**< entries in the list   */
    uint32_t padding0;                /**< not read by the module */
    const AudioProfileEntry *entries; /**< count entries         */
} AudioProfileList;

/** Header of a frame, both directions. 12 bytes. */
typedef struct StreamFrameHeader {
    /** Write: a number of the host's choice, published in the registry value "StreamType". Read: not used. */
    int32_t streamType;
    /** Write: bytes at data. Read: a waiting time before the call, a result after it: ReadStreamBuffer. */
    uint32_t size;
    uint32_t reserved; /**< neither read nor written by the module */
} StreamFrameHeader;

/** One frame, both directions. 32 bytes. */
typedef struct StreamFrame {
    /** Write: one unit, raw or with its ADTS header; no padding is needed behind it.
        Read: a buffer of VELTO_MAX_PACKET_BYTES or more. */
    uint8_t *data;
    uint8_t reserved[16];      /**< neither read nor written by the module */
    StreamFrameHeader *header; /**< required */
} StreamFrame;

/**
 * Receives the module's events, on the host's own thread, before the slot that raises them returns. The
 * module holds no lock meanwhile: the callback may call the table. There is no context pointer: a host
 * keeps its context in a global.
 *
 * @param deviceId  the id that the host passed, valid during the call
 * @param idLength  the length of deviceId in bytes; the id ends there
 * @param eventCode VELTO_EVENT_...
 */
typedef void (*VeltoAudioStateCallback)(const char *deviceId, uint32_t idLength, int32_t eventCode);

/** The host's listener. 16 bytes; the module copies both fields and keeps no pointer to the record. */
typedef struct AudioListener {
    VeltoAudioStateCallback AudioStateCallback; /**< may be null          */
    void *reserved;                             /**< stored, never called */
} AudioListener;

/* ---- The table ----------------------------------------------------------------------------- */

#define VELTO_TABLE_SLOTS 11 /**< pointers in AudioHandlerTable */
#define VELTO_TABLE_BYTES 88 /**< sizeof(AudioHandlerTable)     */

/** The module's functions. Filled by VELTOGetAudioHandler; the host may copy it. */
typedef struct AudioHandlerTable {
    /**
     * Lists the four devices: speaker1, ModemSpeaker1, ModemMic1, mic1. [any thread, overlapping]
     *
     * Each has one profile (48000 Hz, VELTO_CHANNEL_STEREO, VELTO_FORMAT_S16) and one codec
     * (VELTO_CODEC_AAC). The list is always the same; it does not depend on the PC's endpoints.
     *
     * @param list  receives four consecutive items; free them with
     *              Release(VELTO_RELEASE_CAPABILITIES, list, count)
     * @param count receives 4, also on failure
     * @retval VELTO_OK                 *list is valid
     * @retval VELTO_ERROR_INVALID      an argument is null
     * @retval VELTO_ERROR_NULL_POINTER no memory; ignore *list
     */
    int32_t (*GetAudioCapability)(AudioCapabilityItem **list, uint32_t *count);

    /** Does nothing. [any thread, overlapping] @retval VELTO_OK always */
    int32_t (*NoOperation1)(void);

    /**
     * Starts a stream on a speaker: its next 5 blocks are held back and then played together, which is
     * the stream's cushion against late units. Call it before the first unit of each stream.
     * [any thread, overlapping]
     *
     * It also stores rate, channels and bits for both speakers; a key that the list lacks returns to
     * its default. The three values do not describe the stream, which is always 48000 Hz, stereo,
     * 16 bits. They are only tested for being at least 1 when the speakers are next started: a sample
     * rate of 0, or above 2147483647, silences both speakers then.
     *
     * Sends VELTO_EVENT_PARAMETERS_SET for every accepted call, also for an id that is no speaker.
     *
     * @param id,idLength     a device id
     * @param unused1,unused2 not read
     * @param parameters      one entry or more, for example {VELTO_KEY_SAMPLE_RATE, 10, 48000}
     * @retval VELTO_OK            accepted
     * @retval VELTO_ERROR_INVALID id is null or idLength is not strlen(id); the list is null or empty
     */
    int32_t (*SetAudioParameter)(const char *id, uint32_t idLength, void *unused1, void *unused2,
                                 const AudioProfileList *parameters);

    /**
     * Decodes one unit and queues its block for "speaker1" or "ModemSpeaker1".
     * [any thread, overlapping] with other slots. Writes that overlap on two threads may lose a unit:
     * write both speakers from one thread, or one call after the other.
     *
     * The first call after load, or after four minutes without one, starts the decoders and play
     * threads of both speakers, also when its arguments are wrong. Decoding runs on the calling thread;
     * the host may reuse frame and data when the call returns. Write one unit every 21.3 ms: of more
     * than VELTO_QUEUE_UNITS waiting blocks the oldest is dropped.
     *
     * A stream of 4 units or fewer after load or SetAudioParameter is not heard: its blocks wait for
     * the fifth. End each stream with VELTO_CUSHION_UNITS silent units at its pace, which also clear
     * the decoder of the sound before them.
     *
     * @param id,idLength a device id
     * @param unused      not read
     * @param frame       data: one unit; header: streamType and size
     * @retval VELTO_OK            queued, or dropped: another thread was at the start of a write, the
     *                             bytes do not decode, the id names no speaker, no memory for the block, no
     *                             loudspeaker
     * @retval VELTO_ERROR_INVALID id is null or idLength is not strlen(id); frame or header is null;
     *                             the speakers' threads could not be created. After a decoder or a play
     *                             thread failed to start, no other start is tried while the DLL stays mapped
     */
    int32_t (*WriteStreamBuffer)(const char *id, uint32_t idLength, void *unused, StreamFrame *frame);

    /**
     * Ends a track: sends VELTO_EVENT_TRACK_CLOSED and publishes the stream type -1.
     * [any thread, overlapping]
     *
     * It stops nothing and drains nothing: queued blocks are still played, and the loudspeaker is
     * released after four minutes without a write. Both effects happen for every accepted id.
     *
     * @param id,idLength a device id
     * @retval VELTO_OK            accepted
     * @retval VELTO_ERROR_INVALID id is null or idLength is not strlen(id)
     */
    int32_t (*CloseAudioTrack)(const char *id, uint32_t idLength);

    /**
     * Opens the default microphone. [one at a time]
     *
     * Accepts any id whose length is right and any list that is not null, and does not read the list. Sets up
     * the encoder and starts the threads; one of them opens the microphone, possibly after this call has
     * returned.
     *
     * Close an open recording first: a second opening replaces it without closing it, and the first
     * then captures until the process ends.
     *
     * @param id,idLength     a device id
     * @param unused1,unused2 not read
     * @param parameters      required; may be an empty list
     * @retval VELTO_OK            opened, also without a microphone or without memory for the
     *                             recording: reads then deliver nothing
     * @retval VELTO_ERROR_INVALID id is null or idLength is not strlen(id); the list is null; no
     *                             memory while capture was set up
     */
    int32_t (*OpenAudioRecord)(const char *id, uint32_t idLength, void *unused1, void *unused2,
                               const AudioProfileList *parameters);

    /**
     * Fetches at most one unit: raw AAC-LC, 48000 Hz, stereo. [any thread, overlapping]
     *
     * header->size before the call sets how long to wait: the playing time of so many bytes of 48000 Hz
     * stereo 16-bit PCM, plus 2 ms (22 ms for VELTO_READ_SIZE, also for 0). This size is not that of the
     * buffer, which has room for VELTO_MAX_PACKET_BYTES or more in any case.
     *
     * header->size after the call:
     * - 1 to VELTO_MAX_PACKET_BYTES: the bytes of one unit at data
     * - 0: no unit came in time, or nothing is open
     * - unchanged: capture has stopped: the default microphone changes, there was none, or it failed
     *
     * @param id,idLength a device id
     * @param unused      not read
     * @param frame       data: the buffer; header: size
     * @retval VELTO_OK                 see header->size
     * @retval VELTO_ERROR_NULL_POINTER frame, header or data is null
     * @retval VELTO_ERROR_INVALID      id is null or idLength is not strlen(id)
     */
    int32_t (*ReadStreamBuffer)(const char *id, uint32_t idLength, void *unused, StreamFrame *frame);

    /**
     * Closes the microphone. [one at a time]
     *
     * Returns when the recording's threads have ended. The call therefore waits for a running restart on
     * another microphone, and for a call to a device that has not returned. A read that waits on another
     * thread returns. Units that were not read are lost.
     *
     * @param id,idLength a device id
     * @retval VELTO_OK            closed, or nothing was open
     * @retval VELTO_ERROR_INVALID id is null or idLength is not strlen(id)
     */
    int32_t (*CloseAudioRecord)(const char *id, uint32_t idLength);

    /**
     * Frees a block that the module handed out. [any thread, overlapping]
     *
     * @param type  VELTO_RELEASE_CAPABILITIES; a block of any other type is not freed
     * @param block the list of GetAudioCapability
     * @param count the count of GetAudioCapability
     */
    void (*Release)(uint32_t type, void *block, uint32_t count);

    /**
     * Replaces the listener. [before streaming]; later only while no call runs that sends an event.
     *
     * Register a record of null fields before the code of the callback is unloaded.
     *
     * @param listener the record to copy; its fields may be null
     * @retval VELTO_OK            replaced
     * @retval VELTO_ERROR_INVALID listener is null; the registered one stays
     */
    int32_t (*RegisterListener)(const AudioListener *listener);

    /** The same function as NoOperation1. [any thread, overlapping] @retval VELTO_OK always */
    int32_t (*NoOperation10)(void);
} AudioHandlerTable;

#ifndef VELTO_API
#define VELTO_API /* the module's own build exports the function through this macro */
#endif

/**
 * The module's one export: fills all 88 bytes of the table. [before streaming]
 *
 * Call it once after loading. It opens no device and starts no thread.
 *
 * @param table the host's memory
 * @retval VELTO_OK            filled
 * @retval VELTO_ERROR_INVALID table is null
 */
VELTO_API int32_t VELTOGetAudioHandler(AudioHandlerTable *table);

/** For GetProcAddress. */
#define VELTO_ENTRY_NAME "VELTOGetAudioHandler"
/** The type of VELTOGetAudioHandler. */
typedef int32_t (*VeltoGetAudioHandlerFunction)(AudioHandlerTable *table);

#ifdef __cplusplus
}
#endif

/* ---- Layout assertions: every field and every slot ------------------------------------------ */

#if defined(__cplusplus)
#define VELTO_LAYOUT(name, condition) static_assert(condition, #name)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define VELTO_LAYOUT(name, condition) _Static_assert(condition, #name)
#else
#define VELTO_LAYOUT(name, condition) typedef char velto_layout_##name[(condition) ? 1 : -1]
#endif
#define VELTO_SIZE(type, bytes) VELTO_LAYOUT(sizeof_##type, sizeof(type) == (bytes))
#define VELTO_FIELD(type, field, offset) VELTO_LAYOUT(type##_##field, offsetof(type, field) == (offset))
#define VELTO_SLOT(slot, index) VELTO_FIELD(AudioHandlerTable, slot, (index)*8)

VELTO_LAYOUT(pointer_size, sizeof(void *) == 8);

VELTO_SIZE(AudioCapabilityProfile, 12);
VELTO_FIELD(AudioCapabilityProfile, sampleRate, 0);
VELTO_FIELD(AudioCapabilityProfile, channel, 4);
VELTO_FIELD(AudioCapabilityProfile, format, 8);

VELTO_SIZE(AudioCapabilityItem, 64);
VELTO_FIELD(AudioCapabilityItem, name, 0);
VELTO_FIELD(AudioCapabilityItem, nameLength, 8);
VELTO_FIELD(AudioCapabilityItem, deviceType, 12);
VELTO_FIELD(AudioCapabilityItem, profileCount, 16);
VELTO_FIELD(AudioCapabilityItem, padding0, 20);
VELTO_FIELD(AudioCapabilityItem, profiles, 24);
VELTO_FIELD(AudioCapabilityItem, codecCount, 32);
VELTO_FIELD(AudioCapabilityItem, padding1, 36);
VELTO_FIELD(AudioCapabilityItem, codecs, 40);
VELTO_FIELD(AudioCapabilityItem, reserved, 48);

VELTO_SIZE(AudioProfileEntry, 16);
VELTO_FIELD(AudioProfileEntry, key, 0);
VELTO_FIELD(AudioProfileEntry, keyLength, 8);
VELTO_FIELD(AudioProfileEntry, value, 12);

VELTO_SIZE(AudioProfileList, 16);
VELTO_FIELD(AudioProfileList, count, 0);
VELTO_FIELD(AudioProfileList, padding0, 4);
VELTO_FIELD(AudioProfileList, entries, 8);

VELTO_SIZE(StreamFrameHeader, 12);
VELTO_FIELD(StreamFrameHeader, streamType, 0);
VELTO_FIELD(StreamFrameHeader, size, 4);
VELTO_FIELD(StreamFrameHeader, reserved, 8);

VELTO_SIZE(StreamFrame, 32);
VELTO_FIELD(StreamFrame, data, 0);
VELTO_FIELD(StreamFrame, reserved, 8);
VELTO_FIELD(StreamFrame, header, 24);

VELTO_SIZE(AudioListener, 16);
VELTO_FIELD(AudioListener, AudioStateCallback, 0);
VELTO_FIELD(AudioListener, reserved, 8);

VELTO_SIZE(AudioHandlerTable, VELTO_TABLE_BYTES);
VELTO_LAYOUT(table_slots, VELTO_TABLE_BYTES == VELTO_TABLE_SLOTS * 8);
VELTO_SLOT(GetAudioCapability, 0);
VELTO_SLOT(NoOperation1, 1);
VELTO_SLOT(SetAudioParameter, 2);
VELTO_SLOT(WriteStreamBuffer, 3);
VELTO_SLOT(CloseAudioTrack, 4);
VELTO_SLOT(OpenAudioRecord, 5);
VELTO_SLOT(ReadStreamBuffer, 6);
VELTO_SLOT(CloseAudioRecord, 7);
VELTO_SLOT(Release, 8);
VELTO_SLOT(RegisterListener, 9);
VELTO_SLOT(NoOperation10, 10);

#undef VELTO_SLOT
#undef VELTO_FIELD
#undef VELTO_SIZE
#undef VELTO_LAYOUT

#endif
