// The calling thread in the multi-threaded COM apartment.
#pragma once

#include <objbase.h>

namespace velto::host {

// Enters the apartment, and leaves it at the end of its life, on the same thread. A thread that is in another
// apartment stays there, which suits all interfaces of this program.
class ComApartment {
public:
    ComApartment() : m_entered(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
    ~ComApartment()
    {
        if (m_entered) {
            CoUninitialize();
        }
    }
    ComApartment(const ComApartment &) = delete;
    ComApartment &operator=(const ComApartment &) = delete;

private:
    const bool m_entered;
};

} // namespace velto::host
