// A call changes FFmpeg's log level.
// breaks: HYG-10
// level: 4

#include <libavutil/log.h>

#include "disturbance.h"

void Disturb(void)
{
    av_log_set_level(AV_LOG_DEBUG);
}
