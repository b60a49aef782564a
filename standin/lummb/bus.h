// The bus: who is attached, what waits, and the one thread that delivers.
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

// All functions may be called on any thread, those of plug-ins and sinks included: no lock is held while foreign code
// runs. Memory that runs out ends the process.
class Bus {
public:
    // The one object, made at first use and never destroyed, so that it outlives every plug-in and every exit handler.
    static Bus& instance();

    // OnAdvised runs before it returns; events come to the plug-in from then on. Takes a reference to the plug-in.
    int32_t advise(MbFrame::IPlugin& plugin);
    // Waits for an OnEvent that runs, unless it is called from one. Events that nobody wants any more are dropped.
    int32_t unadvise(const PluginId& id);

    // One of the LUMMB codes. After LUMMB_OK the event is counted as waiting, and must be given to deliver_later.
    int32_t reserve(uint32_t event_id);
    // Takes over the caller's reference.
    void deliver_later(IncomingEvent* event);
    // Adds a reference of its own.
    void send_later(MbFrame::IEvent* event);

    uint64_t subscribe(uint32_t event_id, lummb_sink_t call, void* context);
    void unsubscribe(uint64_t token);

    void set_inbox_limit(uint64_t limit);
    lummb_counts counts();

private:
    // Plug-ins and sinks are shared with the dispatch thread, which asks `active` again before each call.
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
    void deliver(IncomingEvent* event, Lock& lock);
    void send(MbFrame::IEvent* event, Lock& lock);
    bool wanted(uint32_t event_id) const;
    void discard_unwanted(Lock& lock);
    void wait_until_left(const void* receiver, Lock& lock);

    std::mutex mutex_;  // guards all below
    std::condition_variable work_;
    std::condition_variable left_;
    std::vector<std::shared_ptr<Plugin>> plugins_;
    std::vector<std::shared_ptr<Sink>> sinks_;
    std::deque<IncomingEvent*> inbox_;
    std::deque<MbFrame::IEvent*> outbox_;
    lummb_counts counts_{};
    uint64_t inbox_limit_ = 1024;
    uint64_t last_token_ = 0;
    const void* running_ = nullptr;  // the plug-in or sink that the dispatch thread is in
    std::thread::id dispatch_thread_;
};
