// In this subset, objbase.h has its declarations.
#pragma once

#include <objbase.h>
