// The driver of a loaded plug-in, as the agent would drive it: it loads the libraries of an agent folder, starts the
// plug-in, publishes events, takes what the plug-in gives out, waits, counts, and stops. Every command of zelhost and
// every long run that needs a running plug-in has one.
//
// A session owns the libraries and the figures. The agent folder and the client are borrowed and must outlive it. There
// is one session at a time in a process, because the plug-in's result callback takes no pointer of the host's.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/lib/account.h"
#include "host/lib/agent_folder.h"
#include "host/lib/figures.h"
#include "host/lib/libraries.h"
#include "host/lib/reports.h"

namespace zelhost {

// What goes into a session. The pointers are those of the caller, and what a kind does not need is null or 0.
// One act of the host. It lives as long as the call that makes it.
struct Input {
    enum Kind : uint8_t {
        start,
        stop,
        publish,
        dns,
        configure,
        file_trace,
        process_trace,
        reset_begin,
        reset_end,
        collect
    };

    Kind kind;
    uint32_t number = 0;         // of the event; of a trace its context; of a collection the size of its buffer
    const char* data = nullptr;  // of an event, a configuration or a process trace; of a file trace its path
    uint64_t size = 0;
    const char* file_key = nullptr;         // of a file trace
    int file_kind = 0;                      // likewise
    const ST_DNS_NATIVE* record = nullptr;  // of a DNS hit
    const char* query_name = nullptr;       // likewise
};

// Sees what a session sees, after it has been counted. A function that is not overridden ignores what it is told. Each
// says on which thread it runs; none may call the session. An exception is said on standard error and goes no further.
class Client {
public:
    virtual ~Client() = default;

    // The caller's thread, before the plug-in or the bus gets it, and after it has had it.
    virtual void on_input(const Input&) {}
    virtual void on_input_done(const Input&) {}
    // The bus's thread: what is to go next, of what was published and what was sent; a code of lummb_host.h.
    virtual int32_t choose_next() { return LUMMB_EITHER; }
    // The bus's thread, before the plug-in gets an event, and after it has had it.
    virtual void on_delivery() {}
    virtual void on_delivered() {}
    // A worker's thread, or the caller's: puts an event that the plug-in sends behind those that were sent before,
    // which has to be done once.
    virtual void on_send(const std::function<void()>& enqueue) { enqueue(); }
    // The thread that logs, one line at a time. Must be quick and must not log.
    virtual void on_log_line(const LogLine&) {}
    // The bus's thread: events 769, 770 and 771. AddRef keeps the event, Release gives it back.
    virtual void on_event(MbFrame::IEvent&, const ST_PB_EVENT&) {}
    // The bus's thread: event 2305.
    virtual void on_memory_check(const ST_MEM_DETECT_INFO&) {}
    // The trace worker for a file trace, the caller's thread for a process trace.
    virtual void on_answer(int, uint32_t, const char*, uint32_t) {}
    // The manager's thread, while `collect` waits: the module, the result of its callback and its text.
    virtual void on_report(std::string_view, int32_t, std::string_view) {}
    // Sleeps while the bus is full, on the thread that publishes. False gives the event up.
    virtual bool pause_publishing();
};

// Taken back before the libraries are closed, the last first, also when a session could not be made.
class Undo {
public:
    Undo() = default;
    ~Undo();
    Undo(const Undo&) = delete;
    Undo& operator=(const Undo&) = delete;

    void add(std::function<void()> step) { steps_.push_back(std::move(step)); }

private:
    std::vector<std::function<void()>> steps_;
};

// Start, stop and the waits belong to one thread; everything that says "any thread" may be called by several at once.
// All members without a lock are written by that one thread, or before any other thread runs.
class Session {
public:
    // Loads everything and subscribes; the plug-in is not started. `visibility` is that of the plug-in's names. Throws
    // Failure.
    Session(const AgentFolder& folder, Client& client, int visibility = RTLD_LOCAL);
    // Stops the plug-in when it still runs. All steps of the teardown are done, whatever fails; failures are said on
    // standard error.
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // What cannot be known because the agent's own libraries stand in the place of stand-ins: a sentence for each.
    // Empty beside the stand-ins.
    std::vector<std::string> unknown() const;
    // False beside the agent's own manager, which no host can ask.
    bool can_collect() const { return manager_ && manager_->collect; }

    // Starts the plug-in; the result of plugin_init. Start and stop are called on one thread, in turn.
    int start();
    // Stops the plug-in and drains the bus. Does nothing unless a start came before. Answers how many outgoing events
    // may have been released after the trace module was unloaded, at most: what was on its way when the stop began, and
    // what the workers sent while it went on. Throws Failure when the bus does not come to rest.
    uint64_t stop();

    // From now on the log is not read: the plug-in is as fast as in an agent, and the account holds only what crosses
    // the bus and what the plug-in reports. Before anything is published.
    void leave_log();

    // Given up means that the client did not want to wait any longer for a full bus.
    enum class Published { accepted, not_subscribed, given_up };
    // Publish one event and count it; while the bus is full they try again. Any thread. Throw Failure when the bus
    // answers something else.
    Published publish(uint32_t event_id, const char* data, uint64_t size);
    Published publish(const ST_DNS_NATIVE& record, const char* query_name);

    // The plug-in's exports; the result is theirs. Answers to traces are counted and go to the client. Any thread.
    int file_trace(const char* path, const char* file_key, int kind, uint32_t context);
    int process_trace(const char* data, uint32_t size, uint32_t context);
    int configure(const char* data, uint32_t size);
    // Open and close a reset period of the data store. Calls of several threads may overlap.
    void reset_begin();
    void reset_end();
    bool reset_open() const;
    // Asks all modules for their reports, with a buffer of that size, and sums up what the plug-in reports. Any thread.
    // Throws Failure when the agent's manager cannot be asked.
    void collect(uint32_t buffer_size = 64 * 1024);

    // What a wait waits for.
    struct Open {
        uint64_t traces;  // not ended
        uint64_t events;  // on the bus
    };
    // Sleeps a moment and answers whether to go on.
    using Pause = std::function<bool(const Open&)>;
    // Waits until the bus has delivered all, nothing has been published, logged or sent for the time `quiet`, and, if
    // wanted, no trace is open. False when `pause` ended it.
    bool wait_until_idle(bool traces, std::chrono::milliseconds quiet, const Pause& pause) const;
    // Waits until every event and every trace has its end, but for what `discarded` counts as gone at an earlier stop.
    // Knows more than the above, and needs the log and the trace module's counts. False when `pause` ended it.
    bool wait_until_settled(const Left& discarded, const Pause& pause) const;
    // Waits until the bus has delivered all that was published or sent. Throws Failure when it does not come to rest.
    void drain() const;

    // Any thread, after the start.
    Account account() const;
    // The live counter, which any thread may ask.
    const Figures& figures() const { return figures_; }
    // For calls that need no counting. The exports allow any thread.
    Plugin& plugin() { return plugin_; }

private:
    // C call-backs of the libraries. `session` is the object.
    static void take_log_line(void* session, int32_t level, const char* text);
    static int32_t take_choice(void* session);
    static void take_delivery(void* session);
    static void take_delivered(void* session);
    static void take_sending(void* session, void (*enqueue)(void*), void* argument);
    static void take_event(void* session, MbFrame::IEvent* event);
    static void take_memory_check(void* session, MbFrame::IEvent* event);
    static void take_report(void* session, const char* module, int32_t result, const char* text);
    static int take_answer(int code, uint32_t context, const char* buffer, uint32_t size);
    static int32_t explain_buffer(void* session, const char* buffer);
    // Parts of the constructor.
    void watch_log();
    void subscribe();
    // None when the trace module does not count, or when there is none.
    std::optional<zeltrc_counts> trace_counts() const;
    // Alerts whose trace has no end yet, by the log and by the trace module.
    uint64_t open_traces() const;
    template <class Act>
    Published publish_when_room(uint32_t event_id, Act publish);

    const AgentFolder& folder_;
    Client& client_;
    Figures figures_;
    bool started_ = false;
    bool trace_module_ = false;  // the plug-in had loaded one after its start
    bool reads_log_ = false;

    mutable std::mutex mutex_;  // guards the next four
    // Sums of all reports that were collected.
    Reports reports_;
    // Reset periods that are open at this moment, and the bus's count of deliveries when the first
    // of them began.
    int resets_open_ = 0;
    uint64_t delivered_at_reset_ = 0;
    uint64_t delivered_in_resets_ = 0;

    // Closed in the opposite order, after everything was undone.
    Support support_;
    SupportInUse support_in_use_;
    Bus bus_;
    std::optional<TraceModule> trace_;      // none when the agent has no such library
    std::optional<ReportManager> manager_;  // likewise
    Plugin plugin_;
    Undo undo_;
};

}  // namespace zelhost
