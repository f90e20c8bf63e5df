/* For modules that change what ReadStreamBuffer delivers. */
#ifndef VELTO_READ_PACKET_H
#define VELTO_READ_PACKET_H

#include "forwarding_module.h"

#define VELTO_PACKET_ROOM 2048 /* bytes: more than a packet has */

/* Reads from the real module, and stores the call's result. Returns the bytes of the packet at frame->data,
   or 0 if the call delivered none. */
static inline uint32_t ReadPacket(const char *id, uint32_t idLength, void *unused, StreamFrame *frame,
                                  int32_t *result)
{
    const uint32_t asked = frame != NULL && frame->header != NULL ? frame->header->size : 0;

    *result = real.ReadStreamBuffer(id, idLength, unused, frame);
    if (*result != VELTO_OK || frame->header->size == asked) {
        return 0; /* an unchanged size means that capture has stopped */
    }
    return frame->header->size;
}

/* True for every 130th call. With each packet wrong, a module would break all clauses that need a packet. One
   wrong packet in almost three seconds of sound breaks only its own. */
static inline int IsRarePacket(void)
{
    static int packets;

    return ++packets % 130 == 0;
}

#endif
