// Queues whose elements are counted.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <future>
#include <map>
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
