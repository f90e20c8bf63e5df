// A call changes the C runtime's locale.
// breaks: HYG-5
// level: 4

#include <locale.h>

#include "disturbance.h"

void Disturb(void)
{
    setlocale(LC_ALL, "French");
}
