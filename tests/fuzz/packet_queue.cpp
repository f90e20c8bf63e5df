// The packet queue, driven by any sequence of operations, beside a model of two plain queues.
//
// Varied: the operations and their order, the number of elements, an element that cannot be made,
// and waits. A call that has to wait is made on a thread of its own, and the next operation is one
// that ends the wait. Not varied, because callers must not do it: giving back what they do not hold.
#include "capture/buffer_queue.h"

#include <deque>
#include <future>
#include <map>
#include <vector>

#include "input.h"

namespace {

using velto_fuzz::Expect;
using velto_fuzz::Input;

struct Element {
    size_t number = 0;
};

class NumberedQueue : public velto::BufferQueue<Element *> {
public:
    ~NumberedQueue() override { StopAndClear(); }

    size_t madeAtMost = SIZE_MAX; // from the next Init on
    std::vector<Element *> living;

protected:
    Element *CreateElement() override
    {
        if (living.size() == madeAtMost) {
            return nullptr;
        }
        living.push_back(new Element{living.size()});
        return living.back();
    }

    void ReleaseElement(Element *element) override
    {
        Expect(std::erase(living, element) == 1, "an element is released once");
        delete element;
    }
};

// The queue and what it has to be.
class Comparison {
public:
    void Step(Input &input)
    {
        switch (input.Byte() % 9) {
        case 0:
            Init(input.Byte() % 65, input.Byte());
            break;
        case 1:
            m_queue.Stop();
            m_stopped = true;
            break;
        case 2:
            m_queue.StopAndClear();
            Cleared();
            break;
        case 3:
            Take(m_free, &NumberedQueue::PopFree, &NumberedQueue::PushFree, input.Byte());
            break;
        case 4:
            Take(m_data, &NumberedQueue::PopData, &NumberedQueue::PushData, input.Byte());
            break;
        case 5:
            Give(m_free, &NumberedQueue::PushFree, input.Byte());
            break;
        case 6:
            Give(m_data, &NumberedQueue::PushData, input.Byte());
            break;
        case 7:
            m_queue.PushFree(nullptr);
            m_queue.PushData(nullptr);
            break;
        default:
            Drain(input.Byte());
            break;
        }
        Expect(m_queue.DataCount() == static_cast<int32_t>(m_data.size()), "the count of filled elements");
        Expect(m_queue.living.size() == m_made, "the elements that live");
    }

private:
    using Queue = std::deque<Element *>;
    using Pop = Element *(NumberedQueue::*)();
    using Push = void (NumberedQueue::*)(Element *);

    void Init(uint32_t count, uint8_t limit)
    {
        m_queue.madeAtMost = limit < 64 ? limit : SIZE_MAX;
        const bool isVacant = m_stopped && m_made == 0;
        const bool works = isVacant && count <= m_queue.madeAtMost;
        Expect(m_queue.Init(count) == works, "whether the queue begins");
        if (works) {
            m_stopped = false;
            m_made = count;
            m_free.assign(m_queue.living.begin(), m_queue.living.end());
        }
    }

    void Cleared()
    {
        m_stopped = true;
        m_made = 0;
        m_free.clear();
        m_data.clear();
        m_held.clear();
    }

    // One element from the queue; on an empty one that runs, the wait and its end.
    void Take(Queue &model, Pop pop, Push push, uint8_t choice)
    {
        if (!model.empty() || m_stopped) {
            Element *expected = nullptr;
            if (!model.empty()) {
                expected = model.front();
                model.pop_front();
                m_held.push_back(expected);
            }
            Expect((m_queue.*pop)() == expected, "the oldest element comes first");
            return;
        }
        auto waiting = std::async(std::launch::async, [&] { return (m_queue.*pop)(); });
        if (m_held.empty() || choice % 2 == 0) {
            m_queue.Stop();
            m_stopped = true;
            Expect(waiting.get() == nullptr, "stopping ends a wait with nothing");
        } else {
            Element *element = m_held[choice % m_held.size()];
            (m_queue.*push)(element);
            Expect(waiting.get() == element, "an element ends a wait");
        }
    }

    void Give(Queue &model, Push push, uint8_t choice)
    {
        if (m_held.empty()) {
            return;
        }
        const auto element = m_held.begin() + static_cast<std::ptrdiff_t>(choice % m_held.size());
        (m_queue.*push)(*element);
        if (!m_stopped) {
            model.push_back(*element);
        }
        m_held.erase(element); // a stopped queue has it back, too
    }

    // As a producer and a consumer do, so many times.
    void Drain(uint8_t times)
    {
        for (uint8_t i = 0; i < times && !m_free.empty(); ++i) {
            Take(m_free, &NumberedQueue::PopFree, &NumberedQueue::PushFree, 0);
            Give(m_data, &NumberedQueue::PushData, static_cast<uint8_t>(m_held.size() - 1));
            if (!m_data.empty()) {
                Take(m_data, &NumberedQueue::PopData, &NumberedQueue::PushData, 0);
                Give(m_free, &NumberedQueue::PushFree, static_cast<uint8_t>(m_held.size() - 1));
            }
        }
    }

    NumberedQueue m_queue;
    bool m_stopped = true;
    size_t m_made = 0;
    Queue m_free;
    Queue m_data;
    std::vector<Element *> m_held;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr int mostSteps = 1000;
    Input input(data, size);
    Comparison comparison;
    for (int step = 0; step < mostSteps && !input.IsEmpty(); ++step) {
        comparison.Step(input);
    }
    return 0;
}
