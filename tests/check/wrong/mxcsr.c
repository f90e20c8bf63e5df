// A call makes calculations round towards zero.
// breaks: HYG-4
// level: 4

#include <xmmintrin.h>

#include "disturbance.h"

void Disturb(void)
{
    _mm_setcsr(_mm_getcsr() | _MM_ROUND_MASK); /* both bits: towards zero */
}
