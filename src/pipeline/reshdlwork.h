// The pipeline: it takes events from the bus through three queues and two worker threads to the reports that go out.
//
// Threads: the bus thread pushes into the event queue; the alarm worker takes from it and runs the alert stage; the
// trace worker takes from the delay queue and the trc queue and runs the trace stage. The first step of a KOV alert runs
// on the alarm worker, on-demand traces come on host threads.
//
// Locks: each part has its own and says so in its header. g_hWorkMutex is held over start and stop; the workers never
// take it. A handler owns the node that it is given; what it does not hand on is freed with it.
#pragma once

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

enum ETrcResult {
    TRC_SUCCESS = 1,
    TRC_FAILED = 2,   // any other code, or a retry that could not be queued
    TRC_RETRY = 3,    // the node is in a queue again, or the trace function is missing
    TRC_DROPPED = 4,  // by the eliminator or by the module
};

class CReshdlWork {
public:
    CReshdlWork() = default;
    virtual ~CReshdlWork() = default;
    CReshdlWork(const CReshdlWork&) = delete;
    CReshdlWork& operator=(const CReshdlWork&) = delete;

    // Reads the settings, loads the modules, starts the workers. False with a log line after everything was undone.
    bool Init();
    // Stops and joins the workers and discards what is queued. May wait for a trace, or 10 seconds in a reset period.
    void Uninit();
    // Forgets what outlives a stop; for the end of the library, after Uninit.
    void forget() { m_brake.clear(); }

    bool IsCareEvent(EVENT_ID) const { return true; }
    // On the bus thread. The first copies the native data of an event, the second takes the copy of a DNS hit over.
    void PushQueue(const void* pEventData, EVENT_ID_T uEventId);
    void PushQueue(std::unique_ptr<ST_IOC_MSG> pEventData);

    // The limit of each queue; 0 is ignored. Any thread, until the next start.
    void SetQueueMax(uint32_t uQueueMax) {
        if (uQueueMax != 0) m_settings.uQueueMax.store(uQueueMax, std::memory_order_relaxed);
    }
    // The limit of the predicted trace time, milliseconds. Any thread, until the next start.
    void SetMaxDelay(uint32_t uMaxDelay) { m_eliminator.SetMaxDelay(uMaxDelay); }

    // The reset period of the data store. Any thread.
    void ResetDbBegin() { m_modules.ResetDbBegin(); }
    void ResetDbEnd() { m_modules.ResetDbEnd(); }

    // On-demand traces, on the caller's thread; 0, or -1 on failure. The callback of FileTrace comes on the trace
    // worker with code 8 unless the trace fails, that of ProcTrace before it returns with code 10 whatever the outcome.
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

    // Alert stage
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

    // False with the log line of a builder that gave no message, at the place of the call.
    static bool is_built(uint64_t size, std::source_location where = std::source_location::current());

    // Trace stage. A delay node that was queued again is gone from the argument.
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
    DelayQueue m_trcQueue;    // first attempts
    DelayQueue m_delayQueue;  // retries
    std::atomic<bool> m_bStop{false};
    void* m_hWorkerThread GUARDED_BY(g_hWorkMutex) = nullptr;
    void* m_hTrcThread GUARDED_BY(g_hWorkMutex) = nullptr;
    bool m_bInit GUARDED_BY(g_hWorkMutex) = false;

    Settings m_settings;
    SiblingModules m_modules;
    RuleBrake m_brake;  // alarm worker only
    TraceEliminator m_eliminator;
};

// The one pipeline. It never ends: the bus and the host may call it up to the last moment of the process. A stop leaves
// its queues closed, so that a late call finds nothing to do.
extern CReshdlWork& g_reshdlWork;
