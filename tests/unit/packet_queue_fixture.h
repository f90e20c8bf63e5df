// Queues whose elements are counted.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <future>
#include <map>
#include <memory_resource>
#include <new>
#include <vector>

#include "capture/buffer_queue.h"

namespace velto_test {

struct Element {
    size_t number = 0;
};

// Tells its record what it made and released.
class CountingQueue : public velto::BufferQueue<Element *> {
public:
    struct Record {
        std::vector<Element *> released; // in order
        size_t created = 0;
    };

    explicit CountingQueue(Record &record, size_t available = SIZE_MAX)
        : m_record(record), m_available(available)
    {
    }
    ~CountingQueue() override { StopAndClear(); }

protected:
    Element *CreateElement() override
    {
        if (m_record.created == m_available) {
            return nullptr;
        }
        return &m_elements.emplace(m_record.created, Element{m_record.created++}).first->second;
    }
    void ReleaseElement(Element *element) override { m_record.released.push_back(element); }

private:
    Record &m_record;
    size_t m_available;
    std::map<size_t, Element> m_elements;
};

// While one exists, counts what objects made meanwhile take from the default memory resource.
class MemoryCount : private std::pmr::memory_resource {
public:
    MemoryCount() : m_previous(std::pmr::set_default_resource(this)) {}
    ~MemoryCount() override { std::pmr::set_default_resource(m_previous); }
    MemoryCount(const MemoryCount &) = delete;
    MemoryCount &operator=(const MemoryCount &) = delete;

    size_t Taken() const { return m_taken; }
    size_t Returned() const { return m_returned; }

    size_t failFrom = SIZE_MAX; // the first request that finds no memory

private:
    void *do_allocate(size_t bytes, size_t alignment) override
    {
        if (m_taken >= failFrom) {
            throw std::bad_alloc();
        }
        ++m_taken;
        return m_previous->allocate(bytes, alignment);
    }
    void do_deallocate(void *block, size_t bytes, size_t alignment) override
    {
        ++m_returned;
        m_previous->deallocate(block, bytes, alignment);
    }
    bool do_is_equal(const memory_resource &other) const noexcept override { return this == &other; }

    std::pmr::memory_resource *m_previous;
    size_t m_taken = 0;
    size_t m_returned = 0;
};

// Long enough for a thread to do what it should not do; a slow machine only makes the test weaker.
inline constexpr auto aMoment = std::chrono::milliseconds(30);

template <typename Result>
bool StillWaits(std::future<Result> &call)
{
    return call.wait_for(aMoment) == std::future_status::timeout;
}

class PacketQueue : public ::testing::Test {
protected:
    CountingQueue::Record record;
    CountingQueue queue{record};
};

} // namespace velto_test
