// Creation of objects in code that reports missing memory without an exception.
#pragma once

#include <new>

namespace velto {

// Creates an object with its default constructor. Null without memory for the object or for an allocation of
// its constructor.
template <typename Object>
Object *NewOrNull()
{
    try {
        return new Object;
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

} // namespace velto
