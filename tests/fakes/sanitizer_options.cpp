// Defaults of the sanitizers. Builds without a sanitizer never call these functions.

#include <cstdlib>
#include <string_view>

#define VELTO_CALLED_BY_SANITIZER extern "C" __attribute__((visibility("default"), used))

// FFmpeg's libraries have no frame pointers, so the suppressions below need the slow unwinder. It takes most
// of the tests' time, and less with fewer frames: the functions below are among the first 12.
VELTO_CALLED_BY_SANITIZER const char *__asan_default_options()
{
    return "fast_unwind_on_malloc=0:malloc_context_size=12";
}

// Known leaks of the module (docs/known-leaks.md), by the function that allocates. What such an object owns
// needs no entry.
// - InitFFmpeg: the decoders' objects, when the speakers start again after an idle release.
// - AllocateContext: the renderers' converters, when the speakers start again.
// - NewBlock: the blocks that are still queued when the module is unloaded. A report of a GCC build has the
//   name without its namespaces, a report of a clang build has it with them.
// - NewRecord: the records of encoded packets, which outlive their queue because a reader may still access
//   one. Their buffers are freed.
//
// With VELTO_KNOWN_LEAKS=0 nothing may leak: for tests that own a decoder, a renderer or a queue, and free
// what the module would leak.
VELTO_CALLED_BY_SANITIZER const char *__lsan_default_suppressions()
{
    const char *knownLeaks = std::getenv("VELTO_KNOWN_LEAKS");
    if (knownLeaks != nullptr && std::string_view(knownLeaks) == "0") {
        return "";
    }
    return "leak:velto::FFmpegDecode::InitFFmpeg\n"
           "leak:velto::BlockConverter::AllocateContext\n"
           "leak:^NewBlock$\n"
           "leak:velto::*::NewBlock\n"
           "leak:velto::AVPktBufQueue::NewRecord\n";
}
