// A fixed set of elements that circulate between a producer and a consumer: the producer takes an
// empty one from the free queue, fills it and puts it on the data queue; the consumer takes it
// from there and gives it back to the free queue. Nothing is dropped: without a free element the
// producer waits.
//
// Any thread may call any operation, except the destructor. Each queue has a mutex of its own, so
// producer and consumer do not meet on one. What touches both queues takes the free mutex first,
// then the data mutex; nothing takes them the other way round.
//
// Only Init allocates, and StopAndClear frees what it allocated. A failing mutex or condition variable
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
        return static_cast<int32_t>(m_data.Size());
    }

protected:
    // Null without memory.
    virtual T CreateElement() = 0;

    // Frees the element; null is ignored.
    virtual void ReleaseElement(T element) { delete element; }

private:
    // Elements in arrival order. Reserve makes room for the pool, whose elements are queued once at most:
    // in normal use nothing else allocates.
    class Queue {
    public:
        bool Empty() const { return m_count == 0; }
        size_t Size() const { return m_count; }

        // Throws std::bad_alloc, with the queue unchanged. Only when empty.
        void Reserve(size_t count) { m_places.resize(count); }

        // Grows for an element that is not of the pool; then throws std::bad_alloc without memory.
        void PushBack(T element)
        {
            if (m_count == m_places.size()) {
                Grow();
            }
            m_places[(m_first + m_count) % m_places.size()] = element;
            ++m_count;
        }

        // Not when empty.
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
            m_places.reserve(m_places.size() + 1);
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
        while (m_pool.size() < count) {
            T element = CreateElement();
            if (element == nullptr) {
                return false;
            }
            m_pool.push_back(element);
            m_free.PushBack(element);
        }
        return true;
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
        m_free.Release();
        m_data.Release();
        for (T element : m_pool) {
            // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.VirtualCall): see the destructor
            ReleaseElement(element);
        }
        std::vector<T>().swap(m_pool); // frees its memory, unlike clear()
    }

    // What is queued is handed out even when the queue is stopped.
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

    bool m_stopped = true; // written with both mutexes held, so either one suffices to read it
    std::vector<T> m_pool; // in the order of creation; guarded by both mutexes
    Queue m_free;          // guarded by the free mutex
    Queue m_data;          // oldest first; guarded by the data mutex
    std::mutex m_freeMutex;
    std::condition_variable m_freeCondition;
    std::mutex m_dataMutex;
    std::condition_variable m_dataCondition;
};

} // namespace velto
