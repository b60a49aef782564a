#include "pipeline/reshdlwork.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <ctime>
#include <mutex>

#include "common/checks.h"
#include "common/guard.h"
#include "common/log.h"
#include "suppress/fifoqueue.h"

CReshdlWork g_reshdlWork;

namespace {

constexpr int64_t kRetryDelaySeconds = 15;
constexpr useconds_t kResetSleepMicroseconds = 10000000;

void join(void*& thread) {
    if (thread != nullptr) zel_thread_join(thread);
    thread = nullptr;
}

}  // namespace

// Reached at process exit with the workers running when the host has not stopped the plug-in.
CReshdlWork::~CReshdlWork() { Uninit(); }

bool CReshdlWork::Init() {
    bool started = false;
    {
        const zel::Lock lock(g_hWorkMutex);
        m_bInit = Start();
        started = m_bInit;
    }
    if (!started) Uninit();
    return started;
}

bool CReshdlWork::Start() {
    if (m_bInit) {
        LOG_WARN("The worker thread has been initialized.");
        return true;
    }
    if (!g_hWorkMutex.valid() || g_pDispatcher.load(std::memory_order_acquire) == nullptr) {
        LOG_WARN("The plug-in is not initialized");
        return false;
    }
    LoadIni();
    if (!m_pureMode.enabled() && !LoadModules()) return false;
    if (!m_eliminator.Init()) {
        LOG_ERROR("init eliminator manager failed!");
        return false;
    }
    if (!create_queue_mutexes()) {
        LOG_ERROR("mutex_init error.");
        return false;
    }
    if (!StartThreads()) {
        LOG_ERROR("Failed to start the worker thread.");
        return false;
    }
    return true;
}

bool CReshdlWork::create_queue_mutexes() {
    const std::unique_lock gate(m_queueGate);
    return m_hEventMutex.init() && m_hTrcMutex.init() && m_hDelayMutex.init();
}

bool CReshdlWork::StartThreads() NO_THREAD_SAFETY_ANALYSIS {  // called by Start alone, with g_hWorkMutex held
    const auto start = [this](void*& thread, int (*entry)(void*)) {
        const int32_t result = thread == nullptr ? zel_thread_start(&thread, entry, this) : 0;
        if (result != 0) LOG_ERROR("thread_start failed, 0x%08x", static_cast<uint32_t>(result));
        return result == 0;
    };
    m_bStop.store(false, std::memory_order_relaxed);
    return start(m_hWorkerThread, WorkerProc) && (m_pureMode.enabled() || start(m_hTrcThread, TrcWorkerProc));
}

void CReshdlWork::Uninit() {
    const zel::Lock lock(g_hWorkMutex);
    m_bInit = false;
    m_bStop.store(true, std::memory_order_relaxed);
    join(m_hWorkerThread);
    join(m_hTrcThread);
    // The alarm worker's last alert may have been queued after the trace worker had drained, and in pure mode there is
    // no trace worker.
    drain_events();
    drain_traces();
    {
        const std::unique_lock gate(m_queueGate);
        m_hEventMutex.destroy();
        m_hTrcMutex.destroy();
        m_hDelayMutex.destroy();
    }
    m_eliminator.Uninit();
    const zel::Lock modules(m_moduleMutex);
    uninit_trace_module();
    UnloadTrcModule();
    UnloadDsModule();
}

int CReshdlWork::WorkerProc(void* pParam) {
    ZEL_ASSERT(pParam);
    prctl(PR_SET_NAME, "zelreshdl_alarm");
    auto* work = static_cast<CReshdlWork*>(pParam);
    work->run_alarm_worker();
    work->drain_events();
    return 0;
}

int CReshdlWork::TrcWorkerProc(void* pParam) {
    ZEL_ASSERT(pParam);
    prctl(PR_SET_NAME, "zelreshdl_trc");
    auto* work = static_cast<CReshdlWork*>(pParam);
    work->run_trace_worker();
    work->drain_traces();
    return 0;
}

void CReshdlWork::idle() const { usleep(static_cast<uint32_t>(m_uInterval.load(std::memory_order_relaxed)) * 1000u); }

void CReshdlWork::run_alarm_worker() {
    while (!m_bStop.load(std::memory_order_relaxed)) {
        NodePtr node = take_event();
        if (node != nullptr)
            zel::guarded("event", [&] { HandleEvent(std::move(node)); });
        else
            idle();
        zel::guarded("die-out", [] { g_hotCache.CheckDieOut(); });
    }
}

void CReshdlWork::run_trace_worker() {
    while (!m_bStop.load(std::memory_order_relaxed)) {
        if (g_iResetDb.load() == 1) {
            usleep(kResetSleepMicroseconds);
            continue;
        }
        bool busy = false;
        const auto handle = [&](DelayNodePtr node) {
            if (node == nullptr) return;
            busy = true;
            zel::guarded("trace", [&] { HandleDelayEvent(std::move(node)); });
        };
        handle(take_due_retry());
        handle(take_trace());
        if (!busy) idle();
    }
}

NodePtr CReshdlWork::take_event() {
    const zel::Lock lock(m_hEventMutex);
    if (m_listEvent.empty()) return nullptr;
    NodePtr node = std::move(m_listEvent.front());
    m_listEvent.pop_front();
    return node;
}

// Only the front is tested, so that a young retry holds back all behind it. A clock that went back lets it go at once.
DelayNodePtr CReshdlWork::take_due_retry() {
    const int64_t now = time(nullptr);
    const zel::Lock lock(m_hDelayMutex);
    if (m_listDelay.empty()) return nullptr;
    const int64_t age = now - m_listDelay.front()->tPushTime;
    if (age >= 0 && age < kRetryDelaySeconds) return nullptr;
    DelayNodePtr node = std::move(m_listDelay.front());
    m_listDelay.pop_front();
    return node;
}

DelayNodePtr CReshdlWork::take_trace() {
    const zel::Lock lock(m_hTrcMutex);
    if (m_listTrc.empty()) return nullptr;
    DelayNodePtr node = std::move(m_listTrc.front());
    m_listTrc.pop_front();
    return node;
}

void CReshdlWork::drain_events() {
    std::list<NodePtr> discarded;
    const zel::Lock lock(m_hEventMutex);
    m_listEvent.swap(discarded);
}

void CReshdlWork::drain_traces() {
    std::list<DelayNodePtr> first_attempts;
    std::list<DelayNodePtr> retries;
    {
        const zel::Lock lock(m_hTrcMutex);
        m_listTrc.swap(first_attempts);
    }
    const zel::Lock lock(m_hDelayMutex);
    m_listDelay.swap(retries);
}
