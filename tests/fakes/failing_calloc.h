// Makes `calloc` fail. tests/fakes/redirect.h redirects the module's calls here.
#pragma once

#include <cstddef>
#include <functional>

namespace fakes {

void *Calloc(std::size_t count, std::size_t bytes);

// While an object exists, the nth call of Calloc after its construction runs `before` on the calling thread
// and returns null.
class FailingCalloc {
public:
    explicit FailingCalloc(int nth, std::function<void()> before = nullptr);
    ~FailingCalloc();
    FailingCalloc(const FailingCalloc &) = delete;
    FailingCalloc &operator=(const FailingCalloc &) = delete;
};

} // namespace fakes
