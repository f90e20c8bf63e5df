// Fixture of the packet queue's tests: a queue that counts its elements.
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

// Records its created and released elements. `available` limits how many it can create.
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

// A call that has not returned after this time counts as blocked. On a slow machine a call that does not
// block may take longer; the test is then weaker, but does not fail.
inline constexpr auto blockingTime = std::chrono::milliseconds(30);

template <typename Result>
bool IsBlocked(std::future<Result> &call)
{
    return call.wait_for(blockingTime) == std::future_status::timeout;
}

class PacketQueue : public ::testing::Test {
protected:
    CountingQueue::Record record;
    CountingQueue queue{record};
};

} // namespace velto_test
