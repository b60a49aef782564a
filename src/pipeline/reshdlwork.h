// The pipeline: three queues, two worker threads, the stage handlers, the sibling modules.
//
// Threads: the bus thread pushes into the event queue; the alarm worker takes from it and runs the alert stage; the
// trace worker takes from the delay queue and the trc queue and runs the trace stage. The first step of a KOV alert
// runs on the alarm worker, on-demand traces come on host threads.
//
// Locks: each queue has its own mutex, and no thread holds two of them, so there is no order among them. g_hWorkMutex
// is held over start and stop, the modules' mutex over loads and unloads; workers take neither. The queues' gate is
// taken before a queue mutex: shared by who uses a queue, exclusive by who creates or destroys the mutexes.
#pragma once

#include <atomic>
#include <list>
#include <map>
#include <shared_mutex>
#include <string>
#include <utility>

#include "common/delay_node.h"
#include "common/module_state.h"
#include "common/mutex.h"
#include "common/pure_mode.h"
#include "common/snapshot.h"
#include "common/trc_functions.h"
#include "decode/records.h"
#include "pipeline/trace_result.h"
#include "suppress/traceEliminator.h"

enum ETrcResult {
    TRC_SUCCESS = 1,
    TRC_FAILED = 2,   // any other code, or a retry that could not be queued
    TRC_RETRY = 3,    // the node is in a queue again, or the trace function is missing
    TRC_DROPPED = 4,  // by the eliminator or by the module
};

// The data store as it is bound at the moment.
struct DsFunctionTable {
    zel::Dll hModule;
    ds_update_db_t ds_update_db = nullptr;
};

class CReshdlWork {
public:
    using Setting = std::atomic<uint64_t>;

    CReshdlWork() = default;
    virtual ~CReshdlWork();
    CReshdlWork(const CReshdlWork&) = delete;
    CReshdlWork& operator=(const CReshdlWork&) = delete;

    // Reads the settings, loads the modules, starts the workers. False with a log line after everything was undone.
    bool Init();
    // Stops and joins the workers and discards what is queued. May wait for a trace, or 10 seconds in a reset period.
    void Uninit();

    bool IsCareEvent(EVENT_ID) const { return true; }
    // On the bus thread. The native data is copied; an ST_IOC_MSG (event 1281) is taken over.
    void PushQueue(void* pEventData, EVENT_ID_T uEventId) EXCLUDES(m_hEventMutex, m_hTrcMutex, m_hDelayMutex);

    // The limit of each queue; 0 is ignored. Any thread, until the next start.
    void SetQueueMax(uint32_t uQueueMax);
    // The limit of the predicted trace time, milliseconds.
    void SetMaxDelay(uint32_t uMaxDelay) { m_eliminator.SetMaxDelay(uMaxDelay); }

    // The reset period of the data store: the modules are unloaded between the two. Each does nothing, silently, when
    // the period is (not) open already. Begin does not wait for a trace that is running. Any thread.
    void ResetDbBegin() EXCLUDES(m_moduleMutex);
    void ResetDbEnd() EXCLUDES(m_moduleMutex);

    // On-demand traces, on the caller's thread; 0, or -1 on failure. The callback of FileTrace comes on the trace
    // worker with code 8 unless the trace fails, that of ProcTrace before it returns with code 10 whatever the outcome.
    int FileTrace(fn_server_ret_t fun, const char* path, const char* file_key, EVENT_ID uEventId, uint32_t uContext);
    int ProcTrace(fn_server_ret_t fun, const char* data, uint32_t size, uint32_t uContext);

private:
    struct EventRow;    // what is done with a node, by event id
    struct SettingRow;  // one key of the settings file
    static const EventRow kEventRows[];
    static const SettingRow kSettingRows[];

    // Start and stop
    bool Start() REQUIRES(g_hWorkMutex);
    void LoadIni();
    bool LoadModules() EXCLUDES(m_moduleMutex);
    bool create_queue_mutexes();
    bool StartThreads();
    static int WorkerProc(void* pParam);
    static int TrcWorkerProc(void* pParam);
    void run_alarm_worker();
    void run_trace_worker();
    void idle() const;
    NodePtr take_event() EXCLUDES(m_hEventMutex);
    DelayNodePtr take_due_retry() EXCLUDES(m_hDelayMutex);
    DelayNodePtr take_trace() EXCLUDES(m_hTrcMutex);
    void drain_events() EXCLUDES(m_hEventMutex);
    void drain_traces() EXCLUDES(m_hTrcMutex, m_hDelayMutex);

    // Sibling modules
    bool LoadDsModule() REQUIRES(m_moduleMutex);
    bool LoadTrcModule() REQUIRES(m_moduleMutex);
    void UnloadDsModule() REQUIRES(m_moduleMutex);
    void UnloadTrcModule() REQUIRES(m_moduleMutex);
    void uninit_trace_module() REQUIRES(m_moduleMutex);

    // Intake
    NodePtr GetEventHandle(void* pEventData, EVENT_ID_T uEventId);
    static NodePtr JsonEventHandle(void* pEventData, EVENT_ID uEventId);
    static NodePtr ComBufEventHandle(void* pEventData, EVENT_ID uEventId);
    static NodePtr IocEventHandle(void* pEventData, EVENT_ID uEventId);

    // Alert stage. A handler owns the node that it is given.
    void HandleEvent(NodePtr pEventData);
    void HandleJsonEvent(NodePtr pEventData);
    void HandleBFEvent(NodePtr pEventData);
    void HandleDetanalEvent(NodePtr pEventData);
    void HandleIocEvent(NodePtr pEventData);
    void HandleKovEvent(NodePtr pEventData);
    void HandleTrcExEvent(NodePtr pEventData);
    bool IsAlertFiltered(const ST_BUF_DATA& stData) EXCLUDES(m_hDelayMutex);
    void HandleJsonEventResult(int nProcessCount, int nRiskLevel, const char* pInBuf, uint64_t uSize,
                               const ST_QUEQE_NODE& stNode);
    void PushIocTrace(NodePtr pNode);
    void ScanScenario(const ST_BUF_DATA& stData);
    void CountRuleMatch(const std::string& strRuleId);
    bool is_rule_within_limit(const std::string& strRuleId) const;

    // Trace stage. A delay node that was queued again is gone from the argument.
    bool PushDelayQueueNode(DelayNodePtr& pEventData) EXCLUDES(m_hTrcMutex, m_hDelayMutex);
    void HandleDelayEvent(DelayNodePtr pEventData);
    void HandleKovEventEx(DelayNodePtr pEventData);
    void HandleEventResult(DelayNodePtr pEventData);
    ETrcResult GetKovAlarm(DelayNodePtr& pEventData, TraceResult& result);
    ETrcResult GetComResult(DelayNodePtr& pEventData, TraceResult& result);
    ETrcResult TrcRetHandle(int32_t hr, DelayNodePtr& pEventData, TraceResult& result, int cost);
    void send_trace(const ST_QUEQE_NODE& stNode, ETrcResult eResult, TraceResult& result);

    std::shared_mutex m_queueGate;
    zel::Mutex m_hEventMutex;
    zel::Mutex m_hTrcMutex;
    zel::Mutex m_hDelayMutex;
    std::list<NodePtr> m_listEvent GUARDED_BY(m_hEventMutex);
    std::list<DelayNodePtr> m_listTrc GUARDED_BY(m_hTrcMutex);      // first attempts
    std::list<DelayNodePtr> m_listDelay GUARDED_BY(m_hDelayMutex);  // retries
    std::atomic<bool> m_bStop{false};
    void* m_hWorkerThread GUARDED_BY(g_hWorkMutex) = nullptr;
    void* m_hTrcThread GUARDED_BY(g_hWorkMutex) = nullptr;
    bool m_bInit GUARDED_BY(g_hWorkMutex) = false;

    Setting m_uQueueMax{0};
    Setting m_uInterval{0};           // milliseconds of idle sleep
    Setting m_uTrcSleep{0};           // stored and used nowhere
    Setting m_uAlertFilterSwitch{1};  // 0 turns the repeat filter off
    Setting m_uTraceVal{0};           // percent of m_uQueueMax
    Setting m_uTrcTime{0};            // stored and logged, used nowhere
    Setting m_uTrcTimes{0};           // highest try count; 0 turns tracing off
    Setting m_uIoaMatchQueueSize{1000};
    Setting m_uDisableScanScenarioLimit{100};

    zel::PlainMutex m_moduleMutex;
    zel::Snapshot<DsFunctionTable> m_dsModule;
    zel::PureMode m_pureMode;

    // Rule matches of the last hour, oldest first, with their counts. Alarm worker only.
    std::list<std::pair<uint64_t, std::string>> m_listIoaMatch;  // monotonic milliseconds, rule id
    std::map<std::string, uint32_t> m_mapIoaMatch;

    TraceEliminator m_eliminator;
};

// One object for the module, built at load.
extern CReshdlWork g_reshdlWork;
