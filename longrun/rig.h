// The built plug-in in a private copy of an agent folder, with a host's count of all that goes in and comes out. For
// the long runs; the count is that of zelhost.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "agent.h"
#include "agent_folder.h"
#include "balance.h"
#include "figures.h"
#include "options.h"
#include "reports.h"

namespace zelhost {

// Sees each log line, one at a time, on the thread that logs. Must be quick and must not log.
using LineWatcher = void (*)(void* context, std::string_view line);

// Any thread, but for start and stop.
class Rig {
public:
    // The bus is loaded, the plug-in too, but not started. Throws Failure.
    Rig(const std::string& agent, const std::vector<Setting>& settings, LineWatcher watcher = nullptr,
        void* context = nullptr);
    // The plug-in must have been stopped.
    ~Rig();
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    // Starts and stops the plug-in, on one thread. The stop waits until the bus has delivered all that was sent. Throws
    // Failure when the plug-in does not start.
    void start();
    void stop();

    // Publish one event; wait while the bus is full.
    void publish(uint32_t id, const char* data, uint64_t size);
    void publish(const ST_DNS_NATIVE& record, const char* query_name);
    // Result of the export. The answers are counted, and each must come.
    int file_trace(const char* path, const char* file_key, int kind, uint32_t context);
    int process_trace(const char* data, uint32_t size, uint32_t context);
    // Bracket a reset period. Calls of several threads may overlap.
    void reset_begin();
    void reset_end();
    // Asks all modules for their reports; what the plug-in reports is summed up.
    void collect(uint32_t buffer_size);
    // Releases the events that a slow subscriber still holds.
    void release_held();

    // Waits until all that went in has its end, but for what `carried` counts as discarded by an earlier stop. False
    // after half a minute without any progress.
    bool settle(const Left& carried = {});

    // Waits until the bus has delivered all that was published or sent.
    void drain_bus() const;

    // All that is known at this moment; exact when nothing runs.
    Account account();

    Plugin& plugin() { return plugin_; }
    int update() { return update_(); }
    uint64_t longest_event_queue() const { return longest_event_queue_; }

private:
    static constexpr size_t kMostHeld = 32;

    static void on_line(void* context, int32_t level, const char* text);
    static void on_event(void* context, MbFrame::IEvent* event);
    static void on_memory_check(void* context, MbFrame::IEvent* event);
    static void on_report(void* context, const char* module, int32_t result, const char* text);
    static int on_answer(int code, uint32_t context, const char* buffer, uint32_t size);
    void hold(MbFrame::IEvent* event);
    void give_back(MbFrame::IEvent* event);
    template <class Publish>
    void publish_when_room(uint32_t id, Publish publish);

    AgentFolder folder_;
    Figures figures_;
    LineWatcher watcher_;
    void* watcher_context_;
    std::atomic<uint64_t> longest_event_queue_ = 0;
    std::atomic<uint64_t> checksum_ = 0;  // of all that was sent
    std::atomic<uint64_t> phase_ = 1;     // raised at each start and before each stop: odd while the plug-in is stopped
    std::atomic<uint64_t> outlived_ = 0;  // most events that were released after the trace module had been unloaded

    std::mutex mutex_;  // guards what follows, up to the libraries
    Reports reports_;
    std::vector<MbFrame::IEvent*> held_;
    uint64_t events_seen_ = 0;
    uint64_t process_traces_ = 0;  // accepted
    int resets_open_ = 0;
    uint64_t delivered_at_reset_ = 0;
    uint64_t delivered_in_resets_ = 0;

    Bus bus_;
    TraceCounts trace_counts_;
    ReportManager manager_;
    Plugin plugin_;
    Function<int()> update_{plugin_.library, "plugin_update"};
    std::vector<uint64_t> sinks_;
};

// Resident memory of the process in KiB, after the allocator has given back what it can. A sanitizer keeps what was
// freed, so that it says nothing there.
uint64_t resident_kib();
inline constexpr bool kMeasureMemory = ZEL_MEASURE_MEMORY != 0;

}  // namespace zelhost
