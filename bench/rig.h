// The built plug-in between a bus and a trace module that cost next to nothing, so that what is measured is the
// plug-in.
//
// The plug-in is loaded from a copy of a staged agent folder; bus and trace module are the scripted
// library, which passes each call on to this program. One rig in a process: the plug-in attaches once in its life.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/lib/agent_folder.h"
#include "platform/event_ids.h"
#include "platform/mbframe.h"
#include "platform/native_payloads.h"

namespace bench {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Processor time of this process so far, all threads, in nanoseconds.
int64_t cpu_ns();
// Resident memory of this process in KiB.
int64_t resident_kib();

// Events are made for one call and live on the stack, so they count nothing.
class Event : public MbFrame::IEvent {
public:
    explicit Event(uint32_t id) : id_(id) {}
    int32_t QueryInterface(const InterfaceId*, void**) override { return -1; }
    int64_t AddRef() override { return 1; }
    int64_t Release() override { return 1; }
    uint32_t GetEventId() override { return id_; }
    int32_t GetPublishedState() override { return 0; }

private:
    uint32_t id_;
};

class DocumentEvent final : public Event {
public:
    explicit DocumentEvent(std::string_view text)
        : Event(event_id::ioa_alert), native_{const_cast<char*>(text.data()), text.size()} {}
    void* GetNativeEvent() override { return &native_; }

private:
    ST_JSON_BUFFER native_;
};

class DnsEvent final : public Event {
public:
    DnsEvent(const ST_DNS_NATIVE& native, const char* name) : Event(event_id::ioc), native_(native), face_(name) {}
    int32_t QueryInterface(const InterfaceId*, void** out) override {
        *out = static_cast<MbFrame::IDnsEvent*>(&face_);
        return 0;
    }
    void* GetNativeEvent() override { return &native_; }

private:
    class Face final : public MbFrame::IDnsEvent {
    public:
        explicit Face(const char* name) : name_(name) {}
        int32_t QueryInterface(const InterfaceId*, void**) override { return -1; }
        void reserved6() override {}
        void reserved7() override {}
        void reserved8() override {}
        const char* GetQueryName() override { return name_; }

    private:
        const char* name_;
    };

    ST_DNS_NATIVE native_;
    Face face_;
};

// All functions are called on the thread of main() unless they say otherwise. What cannot be set up ends the program
// with status 1 and one line.
class Rig {
public:
    // `agent` is a staged agent folder, of which a copy is used, `scripted` the scripted library. A setting of
    // zelreshdl.ini is SECTION:KEY=VALUE. Throws Failure when it has another form or the folder is none.
    Rig(const std::string& agent, const std::string& scripted, const std::vector<std::string>& settings);
    ~Rig();
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    // Gives the plug-in an event, as a bus thread would. The text is copied by the plug-in before this returns.
    void publish(std::string_view document);
    void publish(const ST_DNS_NATIVE& record, const char* query_name);

    // Outgoing events so far, of every id but the requests for memory checks. Any thread.
    uint64_t sent() const { return sent_.load(std::memory_order_acquire); }
    // Waits, asleep, until that many were sent. Ends the program after a minute.
    void await_sent(uint64_t count);
    // The size of its message.
    uint64_t last_size() const { return last_size_.load(std::memory_order_acquire); }
    // When the last one was sent.
    Clock::time_point last_sent() const { return last_sent_.load(std::memory_order_acquire); }

    // What the trace module answers; on the trace worker. The default is a trace that failed.
    std::function<int32_t()> trace;
    // Called for each outgoing event, on the thread that sends it. For a rig that holds the alarm worker.
    std::function<void()> on_sent;

    // For the scripted library.
    int32_t attach(void** frame);
    void sent_one(MbFrame::IEvent& event);

private:
    zelhost::AgentFolder folder_;
    void* library_ = nullptr;
    std::atomic<uint64_t> sent_{0};
    std::atomic<Clock::time_point> last_sent_{};
    std::atomic<uint64_t> last_size_{0};
    std::atomic<uint64_t> awaited_{UINT64_MAX};
    std::mutex mutex_;
    std::condition_variable reached_;
};

}  // namespace bench
