// A call writes a file into the current folder.
// breaks: HYG-2
// level: 4

#include <stdio.h>

#include "disturbance.h"

void Disturb(void)
{
    FILE *file = fopen("velto-debug.txt", "w");

    if (file != NULL) {
        fclose(file);
    }
}
