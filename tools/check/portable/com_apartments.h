// COM apartments of threads. An Environment of a system with COM is also a ComApartments; checks find out
// with a dynamic_cast.
#pragma once

namespace velto::check {

enum class ComApartment { SINGLE_THREADED, MULTI_THREADED };

class ComApartments {
public:
    virtual ~ComApartments() = default;

    // The calling thread enters an apartment once; it is in none before. False if the system refuses.
    virtual bool Enter(ComApartment apartment) = 0;
    // Undoes one Enter of the calling thread.
    virtual void Leave() = 0;
};

} // namespace velto::check
