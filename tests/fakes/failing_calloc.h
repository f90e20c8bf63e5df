// Lets `calloc` find no memory. tests/fakes/redirect.h leads the module's calls here.
#pragma once

#include <cstddef>
#include <functional>

namespace fakes {

void *Calloc(std::size_t count, std::size_t bytes);

// While one exists, the nth call of Calloc from its construction on returns null, after running
// `before` on the calling thread.
class FailingCalloc {
public:
    explicit FailingCalloc(int nth, std::function<void()> before = nullptr);
    ~FailingCalloc();
    FailingCalloc(const FailingCalloc &) = delete;
    FailingCalloc &operator=(const FailingCalloc &) = delete;
};

} // namespace fakes
