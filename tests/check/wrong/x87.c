// A call changes the rounding of the x87 unit.
// breaks: HYG-4
// level: 4

#include <stdint.h>

#include "disturbance.h"

void Disturb(void)
{
    uint16_t word;

    __asm__ volatile("fnstcw %0" : "=m"(word));
    word |= 0x0C00; /* towards zero */
    __asm__ volatile("fldcw %0" : : "m"(word));
}
