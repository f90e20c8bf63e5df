// A call sets FFmpeg's log callback.
// breaks: HYG-10
// level: 4

#include <stdarg.h>
#include <libavutil/log.h>

#include "disturbance.h"

static void Drop(void *context, int level, const char *format, va_list arguments)
{
    (void)context;
    (void)level;
    (void)format;
    (void)arguments;
}

void Disturb(void)
{
    av_log_set_callback(Drop);
}
