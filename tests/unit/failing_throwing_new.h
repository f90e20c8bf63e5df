// Makes `operator new` throw std::bad_alloc.
#pragma once

namespace velto_test {

// While one exists, the nth `operator new` from its construction on throws std::bad_alloc, counting only the
// calls of the thread that made it; 1 is the next call. All forms count: arrays, aligned types, containers,
// the C++ library's own calls. The non-throwing forms count too: the nth one returns null.
// Every other call succeeds. At most one exists on a thread at a time.
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

    // On the thread that made it.
    bool HasFailed() const;
};

} // namespace velto_test
