// Makes `operator new` throw std::bad_alloc.
#pragma once

namespace velto_test {

// While an object exists, the nth `operator new` after its construction throws std::bad_alloc; 1 is the next
// call. Only calls of the constructing thread count. All forms count: arrays, aligned types, containers, the
// C++ library's own calls, and the non-throwing forms, which return null instead. All other calls succeed. A
// thread may have one object at a time.
//
// To fail each allocation of an operation in turn:
//     for (int nth = 1;; ++nth) {
//         const FailingThrowingNew noMemory(nth);
//         Operation();
//         if (!noMemory.HasFailed()) {
//             break; // the operation makes fewer than `nth` allocations
//         }
//     }
class FailingThrowingNew {
public:
    explicit FailingThrowingNew(int nth);
    ~FailingThrowingNew();
    FailingThrowingNew(const FailingThrowingNew &) = delete;
    FailingThrowingNew &operator=(const FailingThrowingNew &) = delete;

    // Only on the constructing thread.
    bool HasFailed() const;
};

} // namespace velto_test
