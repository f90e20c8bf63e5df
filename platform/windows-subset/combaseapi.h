// Empty: in this subset, objbase.h declares the functions of combaseapi.h.
#pragma once

#include <objbase.h>
