// The pipeline. It takes events from the bus through three queues and two worker threads to the reports that go out.
//
// Threads: the bus thread pushes into the event queue. The alarm worker takes from it and runs the alert stage. The
// trace worker takes from the delay queue and the trc queue and runs the trace stage. The first step of a KOV alert
// runs on the alarm worker. On-demand traces come on host threads. In pure mode there is no trace worker.
//
// Locks: each part has its own lock and says so in its header. g_hWorkMutex is held over start and stop; the workers
// never take it, so a stop can join them under it. A handler owns the node that it is given; what it does not pass on
// is freed with it.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <source_location>
#include <span>

#include "common/delay_node.h"
#include "common/module_state.h"
#include "common/trc_functions.h"
#include "decode/records.h"
#include "pipeline/event_rows.h"
#include "pipeline/rule_brake.h"
#include "pipeline/settings.h"
#include "pipeline/sibling_modules.h"
#include "pipeline/work_queue.h"
#include "suppress/fifoqueue.h"
#include "suppress/traceEliminator.h"

// How an attempt ended.
enum ETrcResult {
    TRC_SUCCESS = 1,
    TRC_FAILED = 2,   // an unknown code, no module, or a retry that could not be queued
    TRC_RETRY = 3,    // the node is in a queue again, or the module cannot complete KOV alerts
    TRC_DROPPED = 4,  // by the eliminator or by the module
};

class CReshdlWork {
public:
    CReshdlWork() = default;
    virtual ~CReshdlWork() = default;
    CReshdlWork(const CReshdlWork&) = delete;
    CReshdlWork& operator=(const CReshdlWork&) = delete;

    // Reads the settings, loads the modules and starts the workers. On failure it says why in the log, undoes
    // everything and returns false. Called by plugin_init on its thread. A second call without a stop between is a WARN
    // line and true.
    bool Init();
    // Stops and joins the workers and discards what is queued. It waits for the trace that is running; in a reset
    // period it may wait 10 seconds, for the trace worker's sleep. Called by plugin_uninit, after a failed start, and
    // at the end of the library. Without a start it only closes the queues.
    void Uninit();
    // True in a child process that was forked after the start. The workers are not there, and locks may be held by
    // threads that are not there either. So a stop does nothing in such a process. Any thread.
    bool started_elsewhere() const;
    // Frees what outlives a stop. For the end of the library, after Uninit.
    void forget() { m_brake.clear(); }

    // No event is sorted out here: the bus delivers only what was subscribed.
    bool IsCareEvent(EVENT_ID) const { return true; }
    // On the bus thread. The first form copies the native data of an event. The second form takes the copy of a DNS hit
    // over. A refused event is counted or logged, and the caller learns nothing: the bus has no use for it.
    void PushQueue(const void* pEventData, EVENT_ID_T uEventId);
    void PushQueue(std::unique_ptr<ST_IOC_MSG> pEventData);

    // Sets the limit of each of the three queues; 0 is ignored. Any thread. The next start reads the file again and
    // replaces it.
    void SetQueueMax(uint32_t uQueueMax) {
        if (uQueueMax != 0) m_settings.uQueueMax.store(uQueueMax, std::memory_order_relaxed);
    }
    // Sets the limit of the predicted trace time in milliseconds. Any thread. The next start replaces it by the lowest
    // value.
    void SetMaxDelay(uint32_t uMaxDelay) { m_eliminator.SetMaxDelay(uMaxDelay); }

    // The reset period of the data store, see SiblingModules. Any thread.
    void ResetDbBegin() { m_modules.ResetDbBegin(); }
    void ResetDbEnd() { m_modules.ResetDbEnd(); }

    // On-demand traces, on the caller's thread. 0, or -1 on failure. The callback of FileTrace comes later on the trace
    // worker, with code 8; after a failed trace it never comes. The callback of ProcTrace comes before ProcTrace
    // returns, with code 10, whatever the outcome was.
    int FileTrace(fn_server_ret_t fun, const char* path, const char* file_key, EVENT_ID uEventId, uint32_t uContext);
    int ProcTrace(fn_server_ret_t fun, const char* data, uint32_t size, uint32_t uContext);

private:
    friend std::span<const EventRow> event_rows();  // names the handlers

    using DelayQueue = WorkQueue<ST_DELAY_QUEQE_NODE>;

    // Start and stop
    bool Start() REQUIRES(g_hWorkMutex);
    bool StartThreads() REQUIRES(g_hWorkMutex);
    static int WorkerProc(void* pParam);
    static int TrcWorkerProc(void* pParam);
    void run_alarm_worker();
    void run_trace_worker();
    void idle() const;

    // Intake
    void push(Incoming& incoming, EVENT_ID_T uEventId);
    NodePtr GetEventHandle(Incoming& incoming, EVENT_ID_T uEventId);

    // The alert stage, on the alarm worker. Each of these owns its node.
    void HandleEvent(NodePtr pEventData);
    void HandleJsonEvent(NodePtr pEventData);
    void HandleBFEvent(NodePtr pEventData);
    void HandleDetanalEvent(NodePtr pEventData);
    void HandleIocEvent(NodePtr pEventData);
    void HandleKovEvent(NodePtr pEventData);
    void HandleTrcExEvent(NodePtr pEventData);
    void report_alert(const ST_QUEQE_NODE& stNode, ST_BUF_DATA& stData);
    bool IsAlertFiltered(const ST_BUF_DATA& stData);
    void HandleJsonEventResult(int nProcessCount, int nRiskLevel, const char* pInBuf, uint64_t uSize,
                               const ST_QUEQE_NODE& stNode);
    void PushIocTrace(NodePtr pNode);
    void ScanScenario(const ST_BUF_DATA& stData);

    // False when a builder gave no message. It logs that in the name of its caller.
    static bool is_built(uint64_t size, std::source_location where = std::source_location::current());

    // The trace stage. It runs on the trace worker, but for the first step of a KOV alert and for first pushes. When a
    // function takes a reference to a delay node and queues it, the reference is null afterwards: the node belongs to
    // the queue.
    static DelayNodePtr new_trace_job(NodePtr node);  // with the time of now; null when there is no memory
    bool PushDelayQueueNode(DelayNodePtr& pEventData);
    void HandleDelayEvent(DelayNodePtr pEventData);
    void HandleKovEventEx(DelayNodePtr pEventData);
    void HandleEventResult(DelayNodePtr pEventData);
    ETrcResult GetKovAlarm(DelayNodePtr& pEventData, TraceResult& result);
    ETrcResult GetComResult(DelayNodePtr& pEventData, TraceResult& result);
    ETrcResult TrcRetHandle(int32_t hr, DelayNodePtr& pEventData, TraceResult& result, int cost);
    void start_second_pass(DelayNodePtr pEventData, const char* message, uint64_t size);

    WorkQueue<ST_QUEQE_NODE> m_eventQueue;
    DelayQueue m_trcQueue;    // what is pushed for the first time
    DelayQueue m_delayQueue;  // retries, each for 15 seconds
    // True from a stop until the next start. Before the first start it is false, so that events are taken while the
    // plug-in still starts.
    std::atomic<bool> m_bStop{false};
    std::atomic<pid_t> m_starter{0};  // the process of the last start; 0 before the first
    void* m_hWorkerThread GUARDED_BY(g_hWorkMutex) = nullptr;
    void* m_hTrcThread GUARDED_BY(g_hWorkMutex) = nullptr;
    bool m_bInit GUARDED_BY(g_hWorkMutex) = false;

    Settings m_settings;
    SiblingModules m_modules;
    RuleBrake m_brake;  // alarm worker only
    TraceEliminator m_eliminator;
};

// The one pipeline. It is never destroyed: the bus and the host may call it up to the last moment of the process. A
// stop leaves its queues closed, so a late call finds nothing to do.
extern CReshdlWork& g_reshdlWork;
