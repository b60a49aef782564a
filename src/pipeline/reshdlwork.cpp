#include "pipeline/reshdlwork.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <ctime>

#include "common/checks.h"
#include "common/common.h"
#include "common/guard.h"
#include "common/log.h"
#include "common/never_ends.h"
#include "decode/decode_state.h"
#include "pipeline/fifoqueue_publish.h"
#include "suppress/alert_filter.h"

namespace {

constexpr int64_t kRetryDelaySeconds = 15;
constexpr useconds_t kResetSleepMicroseconds = 10000000;

zel::NeverEnds<CReshdlWork> g_work;

// Ends with the library: stops the workers when the host exits, or unloads the plug-in, without a stop. What only the
// workers use ends with the library as well, and later, because it is touched here first.
struct WorkersEnd {
    WorkersEnd() {
        ResHdlAlert::AlertFilter::place();
        zel::decode_state();
    }
    ~WorkersEnd() {
        g_reshdlWork.Uninit();
        g_reshdlWork.forget();
        g_hotCache.forget();
    }
};
const WorkersEnd g_workersEnd;

void join(void*& thread) {
    if (thread != nullptr) zel_thread_join(thread);
    thread = nullptr;
}

bool start_thread(void*& thread, int (*entry)(void*), void* param) {
    if (thread != nullptr) return true;
    const int32_t result = zel_thread_start(&thread, entry, param);
    if (result != 0) LOG_ERROR("thread_start failed, 0x%08x", static_cast<uint32_t>(result));
    return result == 0;
}

}  // namespace

CReshdlWork& g_reshdlWork = *g_work;

bool CReshdlWork::Init() {
    bool started = false;
    {
        const zel::Lock lock(g_hWorkMutex);
        zel::guarded("start", [&]() REQUIRES(g_hWorkMutex) { started = Start(); });
        m_bInit = started;
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
    m_settings.load();
    if (!m_modules.load()) return false;
    if (!m_eliminator.Init()) {
        LOG_ERROR("init eliminator manager failed!");
        return false;
    }
    if (!m_eventQueue.open() || !m_trcQueue.open() || !m_delayQueue.open()) {
        LOG_ERROR("mutex_init error.");
        return false;
    }
    if (!StartThreads()) {
        LOG_ERROR("Failed to start the worker thread.");
        return false;
    }
    return true;
}

bool CReshdlWork::StartThreads() {
    m_bStop.store(false, std::memory_order_relaxed);
    return start_thread(m_hWorkerThread, WorkerProc, this) &&
           (m_modules.pure_mode() || start_thread(m_hTrcThread, TrcWorkerProc, this));
}

// The workers are joined before anything that they use goes. What the alarm worker queued last, and in pure mode all
// traces, are still in the queues then and go with them.
void CReshdlWork::Uninit() {
    const zel::Lock lock(g_hWorkMutex);
    m_bInit = false;
    m_bStop.store(true, std::memory_order_relaxed);
    join(m_hWorkerThread);
    join(m_hTrcThread);
    m_eventQueue.close();
    m_trcQueue.close();
    m_delayQueue.close();
    m_eliminator.Uninit();
    m_modules.unload();
}

int CReshdlWork::WorkerProc(void* pParam) {
    ZEL_ASSERT(pParam);
    prctl(PR_SET_NAME, "zelreshdl_alarm");
    static_cast<CReshdlWork*>(pParam)->run_alarm_worker();
    return 0;
}

int CReshdlWork::TrcWorkerProc(void* pParam) {
    ZEL_ASSERT(pParam);
    prctl(PR_SET_NAME, "zelreshdl_trc");
    static_cast<CReshdlWork*>(pParam)->run_trace_worker();
    return 0;
}

void CReshdlWork::idle() const { usleep(static_cast<uint32_t>(value_of(m_settings.uInterval)) * 1000u); }

void CReshdlWork::run_alarm_worker() {
    while (!m_bStop.load(std::memory_order_relaxed)) {
        if (NodePtr node = m_eventQueue.take(); node != nullptr)
            zel::guarded("event", [&] { HandleEvent(std::move(node)); });
        else
            idle();
        report_repeats(g_hotCache.CheckDieOut(GetTickMs()));
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
        // A clock that went back lets a retry go at once.
        const int64_t now = time(nullptr);
        handle(m_delayQueue.take_if([now](const ST_DELAY_QUEQE_NODE& node) {
            const int64_t age = zel::checked_sub(now, node.tPushTime);
            return age < 0 || age >= kRetryDelaySeconds;
        }));
        handle(m_trcQueue.take());
        if (!busy) idle();
    }
}
