#include "bus.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

#include "bus_codes.h"
#include "frame.h"

using namespace std::chrono_literals;

constexpr auto kChoiceStep = 1ms;

// Collects the subscription table during OnAdvised. advise puts it in force afterwards, so no event overtakes the end
// of OnAdvised.
class Bus::Setting final : public MbFrame::IPluginSetting {
public:
    int32_t SetOption(uint32_t) override { return kOk; }
    int32_t reserved2() override { return kOk; }
    int32_t SetEventTable(const MbFrame::EventTableEntry* table, uint32_t count) override {
        if (table == nullptr && count > 0) return kInvalidArgument;
        event_ids.clear();
        for (uint32_t i = 0; i < count; ++i) event_ids.push_back(table[i].uEventId);
        // An id that stands twice in the table is delivered once.
        std::ranges::sort(event_ids);
        const auto doubled = std::ranges::unique(event_ids);
        event_ids.erase(doubled.begin(), doubled.end());
        return kOk;
    }

    std::vector<uint32_t> event_ids;
};

// Called under the bus's lock.
bool Bus::Plugin::wants(uint32_t event_id) const { return active && std::ranges::binary_search(event_ids, event_id); }

Bus& Bus::instance() {
    static Bus* const bus = new Bus;
    return *bus;
}

// The thread runs until the process ends. It touches nothing that exit handlers destroy.
Bus::Bus() { std::thread(&Bus::dispatch, this).detach(); }

int32_t Bus::advise(MbFrame::IPlugin& plugin) {
    const auto entry = std::make_shared<Plugin>(Plugin{&plugin, {}, {}});
    if (plugin.GetPluginId(entry->id.data()) != kOk) return kFailed;
    {
        const Lock lock(mutex_);
        // Two plug-ins with one id could not be told apart when one leaves.
        if (std::ranges::any_of(plugins_, [&](const auto& other) { return other->id == entry->id; })) return kFailed;
        plugins_.push_back(entry);
    }
    plugin.AddRef();
    Setting setting;
    // The answer of OnAdvised is not looked at. A plug-in that refuses stays in the list until it detaches itself.
    plugin.OnAdvised(&setting, &bus_dispatcher());
    const Lock lock(mutex_);
    entry->event_ids = std::move(setting.event_ids);
    return kOk;
}

int32_t Bus::unadvise(const PluginId& id) {
    Lock lock(mutex_);
    const auto found = std::ranges::find_if(plugins_, [&](const auto& entry) { return entry->id == id; });
    if (found == plugins_.end()) return kFailed;
    // Kept here, because the dispatch thread may still be in it after it has left the list.
    const std::shared_ptr<Plugin> entry = *found;
    plugins_.erase(found);
    entry->active = false;
    // Before the wait, so that the dispatch thread does not pick one of them up.
    discard_unwanted(lock);
    wait_until_left(entry.get(), lock);
    lock.unlock();
    entry->object->Release();
    return kOk;
}

int32_t Bus::reserve(uint32_t event_id) {
    const Lock lock(mutex_);
    if (!wanted(event_id)) return LUMMB_NOT_SUBSCRIBED;
    // Refused events are counted; the host tries again.
    if (counts_.waiting >= inbox_limit_) {
        ++counts_.refused;
        return LUMMB_FULL;
    }
    ++counts_.waiting;
    ++counts_.published;
    return LUMMB_OK;
}

void Bus::deliver_later(IncomingEvent* event) {
    const Lock lock(mutex_);
    inbox_.push_back(event);
    work_.notify_one();
}

void Bus::send_later(MbFrame::IEvent* event) {
    event->AddRef();
    lummb_order order;
    {
        const Lock lock(mutex_);
        order = order_;
    }
    if (order.send == nullptr) return enqueue(event);
    order.send(
        order.context, [](void* argument) { instance().enqueue(static_cast<MbFrame::IEvent*>(argument)); }, event);
}

void Bus::enqueue(MbFrame::IEvent* event) {
    const Lock lock(mutex_);
    outbox_.push_back(event);
    ++counts_.sent;
    ++counts_.sending;
    work_.notify_one();
}

uint64_t Bus::subscribe(uint32_t event_id, lummb_sink_t call, void* context) {
    const Lock lock(mutex_);
    sinks_.push_back(std::make_shared<Sink>(Sink{++last_token_, event_id, call, context}));
    return last_token_;
}

void Bus::unsubscribe(uint64_t token) {
    Lock lock(mutex_);
    const auto found = std::ranges::find_if(sinks_, [&](const auto& sink) { return sink->token == token; });
    if (found == sinks_.end()) return;
    const std::shared_ptr<Sink> sink = *found;
    sinks_.erase(found);
    sink->active = false;
    wait_until_left(sink.get(), lock);
}

void Bus::set_order(const lummb_order& order) {
    const Lock lock(mutex_);
    order_ = order;
}

void Bus::set_inbox_limit(uint64_t limit) {
    const Lock lock(mutex_);
    inbox_limit_ = limit;
}

lummb_counts Bus::counts() {
    const Lock lock(mutex_);
    lummb_counts counts = counts_;
    // These three are counted elsewhere, without this lock.
    counts.alive = IncomingEvent::alive();
    counts.late = ReferenceCount::late_calls();
    counts.frames = frame_references();
    return counts;
}

// What plug-ins send goes first. It is what empties them, and it must never wait behind a full inbox.
void Bus::dispatch() {
    pthread_setname_np(pthread_self(), "lummb_dispatch");
    Lock lock(mutex_);
    dispatch_thread_ = std::this_thread::get_id();
    for (;;) {
        work_.wait(lock, [this] { return !outbox_.empty() || !inbox_.empty(); });
        if (is_sent_next(lock)) {
            MbFrame::IEvent* const event = outbox_.front();
            outbox_.pop_front();
            send(event, lock);
        } else if (!inbox_.empty()) {  // a plug-in that has left meanwhile has taken its events along
            IncomingEvent* const event = inbox_.front();
            inbox_.pop_front();
            deliver(event, lock);
        }
    }
}

// The host may choose what will come in a moment. It is asked again meanwhile, since it may change its mind.
bool Bus::is_sent_next(Lock& lock) {
    while (order_.choose != nullptr) {
        const lummb_order order = order_;
        lock.unlock();
        const int32_t choice = order.choose(order.context);
        lock.lock();
        if (choice != LUMMB_INCOMING && choice != LUMMB_SENT) break;
        const bool sent = choice == LUMMB_SENT;
        if (sent ? !outbox_.empty() : !inbox_.empty()) return sent;
        work_.wait_for(lock, kChoiceStep);
    }
    return !outbox_.empty();
}

// Each plug-in gets a reference of its own and releases it. The bus's reference keeps the event until all have had it.
// The event stops counting as waiting only after that reference is gone, so an idle bus holds no event.
void Bus::deliver(IncomingEvent* event, Lock& lock) {
    const uint32_t id = event->GetEventId();
    bool delivered = false;
    // A copy: the list may change while a plug-in runs.
    const auto plugins = plugins_;
    for (const auto& plugin : plugins) {
        if (!plugin->wants(id)) continue;
        // Tells wait_until_left where the thread is.
        running_ = plugin.get();
        const lummb_order order = order_;
        lock.unlock();
        if (order.before_delivery != nullptr) order.before_delivery(order.context);
        event->AddRef();
        plugin->object->OnEvent(event, nullptr);
        if (order.after_delivery != nullptr) order.after_delivery(order.context);
        lock.lock();
        running_ = nullptr;
        delivered = true;
        ++counts_.delivered;
        left_.notify_all();
    }
    // Everybody who wanted it has left since it was accepted.
    if (!delivered) ++counts_.discarded;
    lock.unlock();
    event->Release();
    lock.lock();
    --counts_.waiting;
}

// Sinks get no reference of their own; a sink that keeps the event adds one.
void Bus::send(MbFrame::IEvent* event, Lock& lock) {
    const auto sinks = sinks_;
    lock.unlock();
    const uint32_t id = event->GetEventId();
    lock.lock();
    for (const auto& sink : sinks) {
        if (!sink->active || sink->event_id != id) continue;
        running_ = sink.get();
        lock.unlock();
        sink->call(sink->context, event);
        lock.lock();
        running_ = nullptr;
        left_.notify_all();
    }
    lock.unlock();
    event->Release();
    lock.lock();
    --counts_.sending;
}

bool Bus::wanted(uint32_t event_id) const {
    return std::ranges::any_of(plugins_, [&](const auto& plugin) { return plugin->wants(event_id); });
}

void Bus::discard_unwanted(Lock& lock) {
    std::deque<IncomingEvent*> kept;
    std::vector<IncomingEvent*> dropped;
    std::ranges::partition_copy(inbox_, std::back_inserter(kept), std::back_inserter(dropped),
                                [this](IncomingEvent* event) { return wanted(event->GetEventId()); });
    inbox_.swap(kept);
    lock.unlock();
    // Outside of the lock, like every call of foreign code.
    for (IncomingEvent* const event : dropped) event->Release();
    lock.lock();
    counts_.discarded += dropped.size();
    counts_.waiting -= dropped.size();
}

void Bus::wait_until_left(const void* receiver, Lock& lock) {
    // The caller is inside the receiver's own call. A wait for its end would never end, and no other call can be
    // running.
    if (std::this_thread::get_id() == dispatch_thread_) return;
    left_.wait(lock, [&] { return running_ != receiver; });
}
