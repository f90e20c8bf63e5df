// How the sanitizer builds judge leaks; without a sanitizer nobody calls these.

#define VELTO_CALLED_BY_SANITIZER extern "C" __attribute__((visibility("default"), used))

// FFmpeg's libraries keep no frame pointers: the suppressions below need the slow unwinder.
VELTO_CALLED_BY_SANITIZER const char *__asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}

// What the module gives up by design when the speaker tracks start again after an idle release or
// are unloaded: the decoders' contexts, the renderers' converters, what is still queued. Tests of
// a renderer, a decoder or a play thread alone free what those replace. And the records of encoded
// packets, which outlive their queue so that a reader may still look at one; not their buffers.
VELTO_CALLED_BY_SANITIZER const char *__lsan_default_suppressions()
{
    return "leak:StartTrack\n"
           "leak:velto::AudioPlayThread::InitPlayThread\n"
           "leak:velto::VeltoWriteStreamBuffer\n"
           "leak:velto::AVPktBufQueue::NewRecord\n";
}
