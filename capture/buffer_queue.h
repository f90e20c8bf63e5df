// A fixed set of elements that circulate between a producer and a consumer. The producer takes an empty
// element from the free queue, fills it and pushes it to the data queue. The consumer takes it from there and
// returns it to the free queue. No element is dropped: the producer waits for a free one.
//
// Any thread may call any operation, except the destructor. Each queue has its own mutex, so producer and
// consumer rarely wait for each other. An operation on both queues locks the free mutex first, then the data
// mutex.
//
// In normal use, only Init allocates and only StopAndClear frees. A failing mutex or condition variable
// throws std::system_error.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <new>
#include <vector>

namespace velto {

// T is a pointer to an element. The pool owns all elements; queues and callers borrow them.
template <typename T>
class BufferQueue {
public:
    BufferQueue() = default;
    BufferQueue(const BufferQueue &) = delete;
    BufferQueue &operator=(const BufferQueue &) = delete;

    // Releases all elements. A derived class that overrides ReleaseElement has to call StopAndClear in its
    // own destructor, because this destructor no longer calls the override.
    virtual ~BufferQueue() { StopAndClear(); }

    // Creates `count` elements, pushes them to the free queue and starts the queue. False, with nothing
    // changed, if the queue is running or has elements. False, with the queue stopped and empty, if there is
    // no memory for all elements.
    bool Init(uint32_t count)
    {
        const std::lock_guard freeLock(m_freeMutex);
        const std::lock_guard dataLock(m_dataMutex);
        if (!m_stopped || !m_pool.empty() || !m_free.Empty() || !m_data.Empty()) {
            return false;
        }
        if (!FillPool(count)) {
            ClearAll();
            return false;
        }
        m_stopped = false;
        return true;
    }

    // Ends all waits. The elements stay where they are; queued ones can still be popped.
    void Stop()
    {
        const std::lock_guard freeLock(m_freeMutex);
        const std::lock_guard dataLock(m_dataMutex);
        StopLocked();
    }

    // Stops the queue and releases all elements, also those that callers have borrowed. Afterwards Init can
    // be called again.
    void StopAndClear()
    {
        const std::lock_guard freeLock(m_freeMutex);
        const std::lock_guard dataLock(m_dataMutex);
        StopLocked();
        ClearAll();
    }

    // Takes the oldest free element; waits while there is none. Null if there is none and the queue is
    // stopped.
    T PopFree() { return Pop(m_free, m_freeMutex, m_freeCondition); }

    // Returns an element to the free queue. Does nothing once the queue is stopped; the pool still owns the
    // element.
    void PushFree(T element) { Push(element, m_free, m_freeMutex, m_freeCondition); }

    // Appends a filled element to the data queue. Does nothing once the queue is stopped.
    void PushData(T element) { Push(element, m_data, m_dataMutex, m_dataCondition); }

    // Takes the oldest filled element; waits while there is none. Null if there is none and the queue is
    // stopped.
    T PopData() { return Pop(m_data, m_dataMutex, m_dataCondition); }

    // The number of filled elements in the data queue.
    int32_t DataCount()
    {
        const std::lock_guard lock(m_dataMutex);
        return static_cast<int32_t>(m_data.Size());
    }

protected:
    // Null if there is no memory.
    virtual T CreateElement() = 0;

    // Frees the element; null is ignored.
    virtual void ReleaseElement(T element) { delete element; }

private:
    // A ring buffer of elements in arrival order. Reserve makes room for the whole pool, and each element is
    // queued at most once, so PushBack allocates only for elements that are not from the pool.
    class Queue {
    public:
        bool Empty() const { return m_count == 0; }
        size_t Size() const { return m_count; }

        // Throws std::bad_alloc with the queue unchanged. The queue has to be empty.
        void Reserve(size_t count) { m_places.resize(count); }

        // Throws std::bad_alloc if it has to grow and there is no memory.
        void PushBack(T element)
        {
            if (m_count == m_places.size()) {
                Grow();
            }
            m_places[(m_first + m_count) % m_places.size()] = element;
            ++m_count;
        }

        // The queue must not be empty.
        T PopFront()
        {
            T element = m_places[m_first];
            m_first = (m_first + 1) % m_places.size();
            --m_count;
            return element;
        }

        // Empties the queue and frees its memory.
        void Release() { *this = Queue(); }

    private:
        void Grow()
        {
            std::rotate(m_places.begin(), m_places.begin() + static_cast<std::ptrdiff_t>(m_first),
                        m_places.end());
            m_first = 0;
            m_places.resize(m_places.size() + 1);
        }

        std::vector<T> m_places;
        size_t m_first = 0;
        size_t m_count = 0;
    };

    bool FillPool(uint32_t count)
    {
        try {
            m_free.Reserve(count);
            m_data.Reserve(count);
            m_pool.reserve(count);
        } catch (const std::bad_alloc &) {
            return false;
        }
        while (m_pool.size() != count) {
            T element = CreateElement();
            if (element == nullptr) {
                return false;
            }
            m_pool.push_back(element);
            m_free.PushBack(element);
        }
        return true;
    }

    // The caller has locked both mutexes.
    void StopLocked()
    {
        if (!m_stopped) {
            m_stopped = true;
            m_freeCondition.notify_all();
            m_dataCondition.notify_all();
        }
    }

    // The caller has locked both mutexes.
    void ClearAll()
    {
        m_free.Release();
        m_data.Release();
        for (T element : m_pool) {
            // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.VirtualCall): see the destructor
            ReleaseElement(element);
        }
        std::vector<T>().swap(m_pool); // frees its memory, unlike clear()
    }

    // Pops queued elements even when the queue is stopped.
    T Pop(Queue &queue, std::mutex &mutex, std::condition_variable &condition)
    {
        std::unique_lock lock(mutex);
        while (queue.Empty()) {
            if (m_stopped) {
                return nullptr;
            }
            condition.wait(lock);
        }
        return queue.PopFront();
    }

    void Push(T element, Queue &queue, std::mutex &mutex, std::condition_variable &condition)
    {
        if (element == nullptr) {
            return;
        }
        const std::lock_guard lock(mutex);
        if (!m_stopped) {
            queue.PushBack(element);
            condition.notify_one();
        }
    }

    bool m_stopped = true; // written under both mutexes, read under either
    std::vector<T> m_pool; // in order of creation; guarded by both mutexes
    Queue m_free;          // guarded by the free mutex
    Queue m_data;          // oldest first; guarded by the data mutex
    std::mutex m_freeMutex;
    std::condition_variable m_freeCondition;
    std::mutex m_dataMutex;
    std::condition_variable m_dataCondition;
};

} // namespace velto
