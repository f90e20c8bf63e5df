// Defaults of the sanitizers. Builds without a sanitizer never call these functions.

#define VELTO_CALLED_BY_SANITIZER extern "C" __attribute__((visibility("default"), used))

// FFmpeg's libraries have no frame pointers, so the suppressions below need the slow unwinder.
VELTO_CALLED_BY_SANITIZER const char *__asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}

// Known leaks of the module, by the function that allocates:
// - StartTrack: the decoders' contexts, when the speakers start again after an idle release. Tests that use a
//   decoder directly free them.
// - InitPlayThread: the renderers' converters, when the speakers start again. Tests that use a renderer
//   directly free them.
// - PostAudioData: the blocks that are still queued when the module is unloaded.
// - NewRecord: the records of encoded packets, which outlive their queue because a reader may still access
//   one. Their buffers are freed.
VELTO_CALLED_BY_SANITIZER const char *__lsan_default_suppressions()
{
    return "leak:StartTrack\n"
           "leak:velto::AudioPlayThread::InitPlayThread\n"
           "leak:velto::FFmpegDecode::PostAudioData\n"
           "leak:velto::AVPktBufQueue::NewRecord\n";
}
