// The work queue under two threads. The model is a list with two flags. After the run there must be an order of all
// calls, one after the other, in which the model gives the same answers and in which no call comes before one that had
// ended when it began.
#include "pipeline/work_queue.h"

#include <deque>
#include <set>
#include <tuple>

#include "models/baton.h"
#include "models/model.h"

namespace models {
namespace {

enum : size_t { push, push_two, take, take_even, size_twice, open, open_refused, close };

constexpr uint32_t kThreads = 2;
constexpr uint32_t kSwitches = 1 << 6;

using Queue = WorkQueue<int>;
// What a call answered: whether it was accepted, the item it took, or a size. Nothing taken is -1.
using Answer = int;

struct Call {
    size_t act;
    int item;  // of a push; a second one has the next number
    uint64_t began = 0, ended = 0;
    Answer answer = 0;
};

// --- the model ---

struct ModelQueue {
    std::deque<int> items = {};
    bool accepting = true;
    bool has_mutex = false;

    auto operator<=>(const ModelQueue&) const = default;

    Answer answer(const Call& call);

private:
    Answer take_front(bool even) {
        if (items.empty() || (even && items.front() % 2 != 0)) return -1;
        const int item = items.front();
        items.pop_front();
        return item;
    }
};

Answer ModelQueue::answer(const Call& call) {
    switch (call.act) {
        case push:
        case push_two:
            if (accepting) items.push_back(call.item);
            if (accepting && call.act == push_two) items.push_back(call.item + 1);
            return accepting ? 1 : 0;
        case take: return take_front(false);
        case take_even: return take_front(true);
        case size_twice: return static_cast<Answer>(items.size());
        case open:
        case open_refused:
            has_mutex = has_mutex || call.act == open;
            accepting = has_mutex;
            return accepting ? 1 : 0;
        default:
            items.clear();
            accepting = has_mutex = false;
            return 0;
    }
}

// Looks for an order of the calls of both threads. What is left in the queue at the end must agree, too.
class Order {
public:
    Order(const std::vector<Call> (&calls)[kThreads], const std::deque<int>& left) : calls_(calls), left_(left) {}

    bool exists() { return search(0, 0, {}); }

private:
    using Place = std::tuple<size_t, size_t, ModelQueue>;

    bool search(size_t first, size_t second, const ModelQueue& queue) {
        const Call* const one = first < calls_[0].size() ? &calls_[0][first] : nullptr;
        const Call* const other = second < calls_[1].size() ? &calls_[1][second] : nullptr;
        if (one == nullptr && other == nullptr) return queue.items == left_;
        if (!tried_.insert(Place{first, second, queue}).second) return false;
        return (may_come(one, other) && agrees(*one, queue, first + 1, second)) ||
               (may_come(other, one) && agrees(*other, queue, first, second + 1));
    }
    static bool may_come(const Call* call, const Call* before) {
        return call != nullptr && (before == nullptr || before->ended > call->began);
    }
    bool agrees(const Call& call, ModelQueue queue, size_t first, size_t second) {
        return queue.answer(call) == call.answer && search(first, second, queue);
    }

    const std::vector<Call> (&calls_)[kThreads];
    const std::deque<int>& left_;
    std::set<Place> tried_;
};

// --- the component ---

Queue::Cell cell_with(int item) {
    Queue::Cell cell = Queue::make_cell();
    cell.front() = std::make_unique<int>(item);
    return cell;
}

Answer taken(const Queue::Item& item) { return item == nullptr ? -1 : *item; }

Answer push_both(Queue& queue, int item) NO_THREAD_SAFETY_ANALYSIS {
    Queue::Cell one = cell_with(item), other = cell_with(item + 1);
    const Queue::Hold hold(queue);
    const bool first = queue.push_held(one);
    Baton::place();
    const bool second = queue.push_held(other);
    return first == second ? Answer{first} : -1;
}

Answer size_of(Queue& queue) NO_THREAD_SAFETY_ANALYSIS {
    const Queue::Hold hold(queue);
    const size_t size = queue.size_held();
    Baton::place();
    return queue.size_held() == size ? static_cast<Answer>(size) : -1;
}

Answer answer_of(Queue& queue, const Call& call) {
    switch (call.act) {
        case push: {
            Queue::Cell cell = cell_with(call.item);
            const bool accepted = queue.push(cell);
            // A refused item is still in its cell.
            return accepted == cell.empty() ? Answer{accepted} : -1;
        }
        case push_two: return push_both(queue, call.item);
        case take:
            return taken(queue.take_if([](int) {
                Baton::place();
                return true;
            }));
        case take_even:
            return taken(queue.take_if([](int item) {
                Baton::place();
                return item % 2 == 0;
            }));
        case size_twice: return size_of(queue);
        case open:
        case open_refused: {
            Baton::refuse_mutex() = call.act == open_refused;
            const bool opened = queue.open();
            Baton::refuse_mutex() = false;
            return Answer{opened};
        }
        default: queue.close(); return 0;
    }
}

void play(const Steps& steps) {
    Queue queue;
    Baton baton;
    uint64_t clock = 0;
    std::vector<Call> calls[kThreads];
    const auto play_part = [&](uint32_t thread) {
        for (size_t i = 0; i < steps.list.size(); ++i) {
            const Step& step = steps.list[i];
            if (step[0] != thread) continue;
            Baton::begin_step(step[1]);
            Baton::place();
            Call call{step.act, static_cast<int>(3 * i)};
            call.began = ++clock;
            call.answer = answer_of(queue, call);
            call.ended = ++clock;
            calls[thread].push_back(call);
        }
    };
    baton.run([&] { play_part(0); }, [&] { play_part(1); });
    if (!baton.fault().empty()) RC_FAIL(baton.fault());
    std::deque<int> left;
    while (const Queue::Item item = queue.take()) left.push_back(*item);
    if (!Order(calls, left).exists()) RC_FAIL("no order of the calls explains their answers");
}

std::string shown(const std::array<uint32_t, 3>& numbers) {
    std::string text = "by thread " + std::to_string(numbers[0]);
    for (uint32_t place = 0; numbers[1] >> place != 0; ++place)
        if ((numbers[1] >> place & 1) != 0) text += ", over at place " + std::to_string(place);
    return text;
}

}  // namespace

const Model& work_queue() {
    constexpr std::array<uint32_t, 3> kNumbers = {kThreads, kSwitches};
    static const Model model{"work queue",
                             {{"push", 8, kNumbers, shown},
                              {"push two", 3, kNumbers, shown},
                              {"take", 6, kNumbers, shown},
                              {"take if even", 3, kNumbers, shown},
                              {"size", 2, kNumbers, shown},
                              {"open", 3, kNumbers, shown},
                              {"open, refused", 1, kNumbers, shown},
                              {"close", 2, kNumbers, shown}},
                             60,
                             play};
    return model;
}

}  // namespace models
