// Makes the non-throwing `new` fail.
#pragma once

#include <cstddef>

namespace fakes {

// While an object exists, `new (std::nothrow)` of exactly `bytes` bytes returns null on every thread.
class FailingNew {
public:
    explicit FailingNew(std::size_t bytes);
    ~FailingNew();
    FailingNew(const FailingNew &) = delete;
    FailingNew &operator=(const FailingNew &) = delete;
};

} // namespace fakes
