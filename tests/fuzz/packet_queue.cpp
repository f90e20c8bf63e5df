// Fuzzes the packet queue: runs any sequence of operations and compares the queue with a model of two deques.
//
// Varied: the operations and their order, the number of elements, an element that cannot be created, and
// waits. A call that waits runs on a separate thread; a push or a stop on the first thread ends the wait. Not
// varied, because callers must not do it: returning an element that the caller does not have.
#include "capture/buffer_queue.h"

#include <deque>
#include <future>
#include <map>
#include <vector>

#include "effects.h"
#include "input.h"

namespace {

using velto_fuzz::Effect;
using velto_fuzz::Expect;
using velto_fuzz::Input;

Effect initialised("initialised queues");
Effect failedInits("refused or failed initialisations");
Effect taken("elements taken");
Effect returned("elements returned");
Effect returnedLate("elements returned to a stopped queue");
Effect takenInVain("takes from an empty, stopped queue");
Effect wakenByPush("waits ended by a push");
Effect wakenByStop("waits ended by a stop");
Effect cleared("cleared queues");

struct Element {
    size_t number = 0;
};

class NumberedQueue : public velto::BufferQueue<Element *> {
public:
    ~NumberedQueue() override { StopAndClear(); }

    size_t maxElements = SIZE_MAX; // the creation of further elements fails
    std::vector<Element *> elements;

protected:
    Element *CreateElement() override
    {
        if (elements.size() == maxElements) {
            return nullptr;
        }
        elements.push_back(new Element{elements.size()});
        return elements.back();
    }

    void ReleaseElement(Element *element) override
    {
        Expect(std::erase(elements, element) == 1, "an element is released once");
        delete element;
    }
};

// The queue, and the model that must behave in the same way.
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
            Return(m_free, &NumberedQueue::PushFree, input.Byte());
            break;
        case 6:
            Return(m_data, &NumberedQueue::PushData, input.Byte());
            break;
        case 7:
            m_queue.PushFree(nullptr);
            m_queue.PushData(nullptr);
            break;
        default:
            Circulate(input.Byte());
            break;
        }
        Expect(m_queue.DataCount() == static_cast<int32_t>(m_data.size()), "the count of filled elements");
        Expect(m_queue.elements.size() == m_created, "the number of elements");
    }

private:
    using Queue = std::deque<Element *>;
    using Pop = Element *(NumberedQueue::*)();
    using Push = void (NumberedQueue::*)(Element *);

    void Init(uint32_t count, uint8_t limit)
    {
        m_queue.maxElements = limit < 64 ? limit : SIZE_MAX;
        const bool isVacant = m_stopped && m_created == 0;
        const bool works = isVacant && count <= m_queue.maxElements;
        Expect(m_queue.Init(count) == works, "whether Init succeeds");
        initialised.Add(works && count > 0);
        failedInits.Add(!works);
        if (works) {
            m_stopped = false;
            m_created = count;
            m_free.assign(m_queue.elements.begin(), m_queue.elements.end());
        }
    }

    void Cleared()
    {
        cleared.Add(m_created > 0);
        m_stopped = true;
        m_created = 0;
        m_free.clear();
        m_data.clear();
        m_takenOut.clear();
    }

    // Takes an element out of the queue. If the queue is empty and not stopped, the call waits on another
    // thread; a stop or a push then ends the wait.
    void Take(Queue &model, Pop pop, Push push, uint8_t choice)
    {
        if (!model.empty() || m_stopped) {
            Element *expected = nullptr;
            if (!model.empty()) {
                expected = model.front();
                model.pop_front();
                m_takenOut.push_back(expected);
            }
            Expect((m_queue.*pop)() == expected, "the oldest element comes first");
            (expected != nullptr ? taken : takenInVain).Add();
            return;
        }
        auto waiting = std::async(std::launch::async, [&] { return (m_queue.*pop)(); });
        if (m_takenOut.empty() || choice % 2 == 0) {
            m_queue.Stop();
            m_stopped = true;
            Expect(waiting.get() == nullptr, "stopping ends a wait without an element");
            wakenByStop.Add();
        } else {
            Element *element = m_takenOut[choice % m_takenOut.size()];
            (m_queue.*push)(element);
            Expect(waiting.get() == element, "a pushed element ends a wait");
            wakenByPush.Add();
        }
    }

    void Return(Queue &model, Push push, uint8_t choice)
    {
        if (m_takenOut.empty()) {
            return;
        }
        const auto element = m_takenOut.begin() + static_cast<std::ptrdiff_t>(choice % m_takenOut.size());
        (m_queue.*push)(*element);
        (m_stopped ? returnedLate : returned).Add();
        if (!m_stopped) {
            model.push_back(*element);
        }
        m_takenOut.erase(element); // a stopped queue ignores the push, but still owns the element
    }

    // Moves elements from the free queue to the data queue and back, as a producer and a consumer do.
    void Circulate(uint8_t times)
    {
        for (uint8_t i = 0; i < times && !m_free.empty(); ++i) {
            Take(m_free, &NumberedQueue::PopFree, &NumberedQueue::PushFree, 0);
            Return(m_data, &NumberedQueue::PushData, static_cast<uint8_t>(m_takenOut.size() - 1));
            if (!m_data.empty()) {
                Take(m_data, &NumberedQueue::PopData, &NumberedQueue::PushData, 0);
                Return(m_free, &NumberedQueue::PushFree, static_cast<uint8_t>(m_takenOut.size() - 1));
            }
        }
    }

    NumberedQueue m_queue;
    bool m_stopped = true;
    size_t m_created = 0;
    Queue m_free;
    Queue m_data;
    std::vector<Element *> m_takenOut;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr int maxSteps = 1000;
    Input input(data, size);
    Comparison comparison;
    for (int step = 0; step < maxSteps && !input.IsEmpty(); ++step) {
        comparison.Step(input);
    }
    return 0;
}
