#include "decoded_sound.h"

#include <libavcodec/avcodec.h>

#include "forwarding_module.h"

typedef int (*ReceiveFrame)(AVCodecContext *, AVFrame *);

static ReceiveFrame receiveFrame;

static int ReceiveAndChange(AVCodecContext *decoder, AVFrame *frame)
{
    const int result = receiveFrame(decoder, frame);

    if (result == 0 && frame->format == AV_SAMPLE_FMT_FLTP && frame->ch_layout.nb_channels == 2) {
        ChangeSound((float *)frame->data[0], (float *)frame->data[1], frame->nb_samples);
    }
    return result;
}

void ChangeTable(AudioHandlerTable *table)
{
    (void)table;
    if (receiveFrame == NULL) {
        receiveFrame = (ReceiveFrame)(uintptr_t)ReplaceImport("avcodec_receive_frame",
                                                              (const void *)(uintptr_t)&ReceiveAndChange);
    }
}
