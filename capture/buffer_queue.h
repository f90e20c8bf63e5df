// A fixed set of elements that circulate between a producer and a consumer: the producer takes an
// empty one from the free queue, fills it and puts it on the data queue; the consumer takes it
// from there and gives it back to the free queue. Nothing is dropped: without a free element the
// producer waits.
//
// Any thread may call any operation, except the destructor. Each queue has a mutex of its own, so
// producer and consumer do not meet on one. What touches both queues takes the free mutex first,
// then the data mutex; nothing takes them the other way round.
//
// Memory is taken by Init and given back by StopAndClear; between the two nothing is allocated. A
// failing mutex or condition variable throws std::system_error.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory_resource>
#include <mutex>
#include <new>
#include <vector>

namespace velto {

// T points to an element. The pool owns all elements; the queues and the callers only borrow them.
template <typename T>
class BufferQueue {
public:
    BufferQueue() = default;
    BufferQueue(const BufferQueue &) = delete;
    BufferQueue &operator=(const BufferQueue &) = delete;

    // Releases the elements that are left. Too late for a derived class's ReleaseElement: its own
    // destructor has to call StopAndClear.
    virtual ~BufferQueue() { StopAndClear(); }

    // Makes `count` elements, puts them on the free queue and lets the queue run. False, with the
    // queue as it was, unless it is stopped and empty; false, with the queue stopped and empty,
    // when there is no memory for so many.
    bool Init(uint32_t count)
    {
        const std::lock_guard freeLock(m_freeMutex);
        const std::lock_guard dataLock(m_dataMutex);
        if (!m_stopped || !m_pool.empty() || !m_free.empty() || !m_data.empty()) {
            return false;
        }
        if (!FillPool(count)) {
            ClearAll();
            return false;
        }
        m_stopped = false;
        return true;
    }

    // Wakes all who wait. The elements stay where they are: what is queued can still be taken.
    void Stop()
    {
        const std::lock_guard freeLock(m_freeMutex);
        const std::lock_guard dataLock(m_dataMutex);
        StopLocked();
    }

    // Stop, and releases all elements, also those that a caller still holds. The queue can be
    // initialised again.
    void StopAndClear()
    {
        const std::lock_guard freeLock(m_freeMutex);
        const std::lock_guard dataLock(m_dataMutex);
        StopLocked();
        ClearAll();
    }

    // The oldest free element. Waits for one; null once the queue is stopped and has none.
    T PopFree() { return Pop(m_free, m_freeMutex, m_freeCondition); }

    // Takes an element back. Once the queue is stopped it goes nowhere: the pool still has it.
    void PushFree(T element) { Push(element, m_free, m_freeMutex, m_freeCondition); }

    // Puts a filled element behind the others. Once the queue is stopped it goes nowhere.
    void PushData(T element) { Push(element, m_data, m_dataMutex, m_dataCondition); }

    // The oldest filled element. Waits for one; null once the queue is stopped and has none.
    T PopData() { return Pop(m_data, m_dataMutex, m_dataCondition); }

    // Filled elements that wait for the consumer.
    int32_t DataCount()
    {
        const std::lock_guard lock(m_dataMutex);
        return static_cast<int32_t>(m_data.size());
    }

protected:
    // Null without memory.
    virtual T CreateElement() = 0;

    // Frees the element; null is ignored.
    virtual void ReleaseElement(T element) { delete element; }

private:
    using Queue = std::pmr::deque<T>;

    bool FillPool(uint32_t count)
    {
        try {
            ReserveMemory(m_free, count);
            ReserveMemory(m_data, count);
            m_pool.reserve(count);
        } catch (const std::bad_alloc &) {
            return false;
        }
        while (m_pool.size() < count) {
            T element = CreateElement();
            if (element == nullptr) {
                return false;
            }
            m_pool.push_back(element);
            m_free.push_back(element);
        }
        return true;
    }

    // A deque takes a new block when its end reaches one, and a new table of blocks when that has
    // no room behind the last. Moving a full queue once through all places lets it take all that
    // it will ever need; its memory resource keeps what it gives back.
    static void ReserveMemory(Queue &queue, uint32_t count)
    {
        constexpr size_t mostPerBlock = 512; // no library has blocks of more elements
        for (uint32_t i = 0; i < count; ++i) {
            queue.push_back(nullptr);
        }
        for (size_t i = 0; i < 2 * (count + mostPerBlock); ++i) {
            queue.push_back(nullptr);
            queue.pop_front();
        }
        queue.clear();
    }

    // Both mutexes are held.
    void StopLocked()
    {
        if (!m_stopped) {
            m_stopped = true;
            m_freeCondition.notify_all();
            m_dataCondition.notify_all();
        }
    }

    // Both mutexes are held.
    void ClearAll()
    {
        m_free.clear();
        m_data.clear();
        for (T element : m_pool) {
            // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.VirtualCall): see the destructor
            ReleaseElement(element);
        }
        m_pool.clear();
    }

    // What is queued is handed out even when the queue is stopped.
    T Pop(Queue &queue, std::mutex &mutex, std::condition_variable &condition)
    {
        std::unique_lock lock(mutex);
        while (queue.empty()) {
            if (m_stopped) {
                return nullptr;
            }
            condition.wait(lock);
        }
        T element = queue.front();
        queue.pop_front();
        return element;
    }

    void Push(T element, Queue &queue, std::mutex &mutex, std::condition_variable &condition)
    {
        if (element == nullptr) {
            return;
        }
        const std::lock_guard lock(mutex);
        if (!m_stopped) {
            queue.push_back(element);
            condition.notify_one();
        }
    }

    bool m_stopped = true; // written with both mutexes held, so either one suffices to read it
    std::vector<T> m_pool; // in the order of creation; guarded by both mutexes
    std::pmr::unsynchronized_pool_resource m_freeMemory;
    Queue m_free{&m_freeMemory}; // guarded, like its memory, by the free mutex
    std::pmr::unsynchronized_pool_resource m_dataMemory;
    Queue m_data{&m_dataMemory}; // oldest first; guarded, like its memory, by the data mutex
    std::mutex m_freeMutex;
    std::condition_variable m_freeCondition;
    std::mutex m_dataMutex;
    std::condition_variable m_dataCondition;
};

} // namespace velto
