// Nothing of this header is used but its name, which ksmedia.h asks for.
#pragma once

#include <windows.h>
