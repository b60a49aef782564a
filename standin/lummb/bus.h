// The bus: who is attached, what waits, and the one thread that delivers. It owns the events that wait and one
// reference to each attached plug-in.
#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "incoming_event.h"
#include "lummb_host.h"
#include "platform/mbframe.h"

using PluginId = std::array<unsigned char, 16>;

// Any thread may call these functions; plug-ins and sinks may call them, too, because no lock is held while foreign
// code runs. Memory that runs out ends the process: a bus that lost an event would make every balance worthless.
class Bus {
public:
    // The one object, made at first use. It is never destroyed, so it outlives every plug-in and every exit handler.
    static Bus& instance();

    // Attaches a plug-in. OnAdvised runs before this returns, and events come to the plug-in from then on. Takes a
    // reference to it. kFailed when a plug-in with the same id is attached.
    int32_t advise(MbFrame::IPlugin& plugin);
    // Detaches a plug-in. Waits for an OnEvent that is running, unless it is called from one. Events that nobody wants
    // any more are dropped and counted as discarded.
    int32_t unadvise(const PluginId& id);

    // Asks for a place in the inbox; answers one of the LUMMB codes. After LUMMB_OK the event counts as waiting, so the
    // caller must give it to deliver_later. The two steps save making an event that is refused.
    int32_t reserve(uint32_t event_id);
    // Queues an event for plug-ins. Takes the caller's reference over.
    void deliver_later(IncomingEvent* event);
    // Queues an event for the sinks. Adds a reference of its own. Never refuses, so that a plug-in can always report.
    void send_later(MbFrame::IEvent* event);

    // See lummb_host.h.
    uint64_t subscribe(uint32_t event_id, lummb_sink_t call, void* context);
    void unsubscribe(uint64_t token);

    void set_order(const lummb_order& order);
    void set_inbox_limit(uint64_t limit);
    lummb_counts counts();

private:
    // Plug-ins and sinks are shared with the dispatch thread. It asks `active` again before each call, because they may
    // be removed while it works through a list.
    struct Plugin {
        MbFrame::IPlugin* object;
        PluginId id;
        std::vector<uint32_t> event_ids;  // sorted, each once
        bool active = true;

        bool wants(uint32_t event_id) const;
    };
    struct Sink {
        uint64_t token;
        uint32_t event_id;
        lummb_sink_t call;
        void* context;
        bool active = true;
    };
    class Setting;
    using Lock = std::unique_lock<std::mutex>;

    Bus();
    [[noreturn]] void dispatch();
    bool is_sent_next(Lock& lock);
    void deliver(IncomingEvent* event, Lock& lock);
    void send(MbFrame::IEvent* event, Lock& lock);
    void enqueue(MbFrame::IEvent* event);
    bool wanted(uint32_t event_id) const;
    void discard_unwanted(Lock& lock);
    void wait_until_left(const void* receiver, Lock& lock);

    // Guards all below. No foreign code runs under it.
    std::mutex mutex_;
    std::condition_variable work_;  // something waits
    std::condition_variable left_;  // the dispatch thread has come back from a plug-in or a sink
    std::vector<std::shared_ptr<Plugin>> plugins_;
    std::vector<std::shared_ptr<Sink>> sinks_;
    // What waits for plug-ins, and what plug-ins have sent. Each element is one reference.
    std::deque<IncomingEvent*> inbox_;
    std::deque<MbFrame::IEvent*> outbox_;
    lummb_order order_{};
    lummb_counts counts_{};
    uint64_t inbox_limit_ = 1024;
    uint64_t last_token_ = 0;
    const void* running_ = nullptr;  // the plug-in or sink that the dispatch thread is in
    std::thread::id dispatch_thread_;
};
