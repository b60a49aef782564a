// A session as a long run needs it: a plug-in in a private copy of an agent folder, and a slow subscriber that keeps
// some events for a while. The session itself drives and counts.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/lib/agent_folder.h"
#include "host/lib/session.h"
#include "host/load/queue_peaks.h"

namespace zelhost {

// Owns the folder and the session. Any thread may call it, but start and stop come from one thread.
class Rig : private Client {
public:
    // Sees each line of the log, one at a time, on the thread that logs. It must be quick and must not log.
    using Watcher = std::function<void(const LogLine& line)>;

    // `agent` is the folder that is copied; the settings are appended in the copy. Throws Failure.
    Rig(const std::string& agent, const std::vector<Setting>& settings, Watcher watcher = {});
    // Releases what is held. The plug-in must have been stopped.
    ~Rig();
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    Session& session() { return session_; }
    // Start and stop come from one thread, in turn. Start throws Failure when the plug-in does not start. It also does
    // so when the agent's own libraries stand where a long run needs the counts of stand-ins.
    void start();
    void stop();
    // Waits until everything that went in has its end, except what `discarded` counts as lost at an earlier stop. False
    // after half a minute without any progress.
    bool settle(const Left& discarded = {});
    // Releases the events that the slow subscriber still holds.
    void release_held();

    // When nothing runs.
    uint64_t longest_event_queue() const { return peaks_.event; }
    // The most events that may have been released after the trace module was unloaded.
    uint64_t outlived() const { return outlived_; }

private:
    static constexpr size_t kMostHeld = 32;

    void on_log_line(const LogLine& line) override;
    void on_event(MbFrame::IEvent& event, const ST_PB_EVENT& record) override;
    void on_memory_check(const ST_MEM_DETECT_INFO& info) override;
    void on_answer(int code, uint32_t context, const char* buffer, uint32_t size) override;
    void give_back(MbFrame::IEvent* event);

    Watcher watcher_;
    QueuePeaks peaks_;                    // written on the threads that log, one at a time
    std::atomic<uint64_t> checksum_ = 0;  // of all that was given out
    std::atomic<uint64_t> phase_ = 1;     // raised at each start and before each stop: odd while the plug-in is stopped
    std::atomic<uint64_t> outlived_ = 0;

    std::mutex mutex_;  // guards the next two
    std::vector<MbFrame::IEvent*> held_;
    uint64_t events_seen_ = 0;

    AgentFolder folder_;
    Session session_;
};

}  // namespace zelhost
