// How the sanitizer builds judge leaks; without a sanitizer nobody calls these.

#define VELTO_CALLED_BY_SANITIZER extern "C" __attribute__((visibility("default"), used))

// FFmpeg's libraries keep no frame pointers: the suppressions below need the slow unwinder.
VELTO_CALLED_BY_SANITIZER const char *__asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}

// What the module gives up by design, each by the function that allocates it:
//   StartTrack          the decoders' contexts, when the speakers start again after an idle release;
//                       tests of a decoder alone free what it replaces
//   InitPlayThread      the renderers' converters, then, too; the same for tests of a renderer
//   PostAudioData       the blocks that are still queued when the module is unloaded
//   NewRecord           the records of encoded packets, which outlive their queue so that a reader
//                       may still look at one; not their buffers
VELTO_CALLED_BY_SANITIZER const char *__lsan_default_suppressions()
{
    return "leak:StartTrack\n"
           "leak:velto::AudioPlayThread::InitPlayThread\n"
           "leak:velto::FFmpegDecode::PostAudioData\n"
           "leak:velto::AVPktBufQueue::NewRecord\n";
}
