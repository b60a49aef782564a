#include "pipeline/reshdlwork.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <ctime>
#include <memory>

#include "common/checks.h"
#include "common/common.h"
#include "common/guard.h"
#include "common/log.h"
#include "common/never_ends.h"
#include "decode/decode_state.h"
#include "pipeline/fifoqueue_publish.h"
#include "suppress/alert_filter.h"
#include "trace/message_room.h"

namespace {

// Between two attempts the agent's data store gets time to learn of the processes that a trace needs. Inclusive: a
// retry is due at exactly 15 seconds.
constexpr int64_t kRetryDelaySeconds = 15;
// Nothing wakes the trace worker when the reset period ends, so traces may go on up to 10 seconds late.
constexpr useconds_t kResetSleepMicroseconds = 10000000;

zel::NeverEnds<CReshdlWork> g_work;

// Ends with the library. When the host exits or unloads the plug-in without a stop, it stops the workers, and then it
// ends what only the workers use.
struct WorkersEnd {
    ~WorkersEnd() {
        // A child process has none of the workers, and what they use may be half changed or locked by them for ever.
        if (g_reshdlWork.started_elsewhere()) return;
        g_reshdlWork.Uninit();
        // The storage of these is never destroyed, so their memory is freed here, for a leak checker and for a host
        // that loads the plug-in again.
        g_reshdlWork.forget();
        g_hotCache.forget();
        ResHdlAlert::AlertFilter::place().reset();
        std::destroy_at(&zel::decode_state());
        zel::MessageRoom::forget();
    }
};
const WorkersEnd g_workersEnd;

// The handle becomes null, because it may be joined only once.
void join(void*& thread) {
    if (thread != nullptr) zel_thread_join(thread);
    thread = nullptr;
}

// A thread that runs already is kept.
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
        // The analysis does not see through the guard that the mutex is held.
        zel::guarded("start", [&]() NO_THREAD_SAFETY_ANALYSIS { started = Start(); });
        m_bInit = started;
    }
    // After the lock is released, because Uninit takes it.
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
    m_starter.store(getpid(), std::memory_order_relaxed);
    // The order is fixed: modules before workers, because a worker uses them at once; the eliminator before the queues,
    // because a queued trace must be in its account.
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

bool CReshdlWork::started_elsewhere() const {
    const pid_t starter = m_starter.load(std::memory_order_relaxed);
    return starter != 0 && starter != getpid();
}

bool CReshdlWork::StartThreads() {
    // Before the first thread starts, since it would end at once otherwise.
    m_bStop.store(false, std::memory_order_relaxed);
    return start_thread(m_hWorkerThread, WorkerProc, this) &&
           (m_modules.pure_mode() || start_thread(m_hTrcThread, TrcWorkerProc, this));
}

// The workers are joined before anything that they use goes. What the alarm worker queued last is still in the queues
// then and is discarded with them; in pure mode all traces are.
void CReshdlWork::Uninit() {
    if (started_elsewhere()) return;
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
    // Operators find the workers by these names. The kernel keeps 15 characters of a name, and both fit.
    prctl(PR_SET_NAME, "zelreshdl_alarm");
    // The kernel may wake a sleeper 50 microseconds late to save a wake-up. An alert is worth one.
    prctl(PR_SET_TIMERSLACK, 1UL);
    static_cast<CReshdlWork*>(pParam)->run_alarm_worker();
    return 0;
}

int CReshdlWork::TrcWorkerProc(void* pParam) {
    ZEL_ASSERT(pParam);
    prctl(PR_SET_NAME, "zelreshdl_trc");
    static_cast<CReshdlWork*>(pParam)->run_trace_worker();
    return 0;
}

// Polling: nothing wakes a worker. The interval is at least a millisecond once the settings are read.
void CReshdlWork::idle() const { usleep(static_cast<uint32_t>(value_of(m_settings.uInterval)) * 1000u); }

void CReshdlWork::run_alarm_worker() {
    while (!m_bStop.load(std::memory_order_relaxed)) {
        if (NodePtr node = m_eventQueue.take(); node != nullptr)
            zel::guarded("event", [&] { HandleEvent(std::move(node)); });
        else
            idle();
        // After each turn, also a busy one: otherwise a steady stream of events would keep old entries.
        report_repeats(g_hotCache.CheckDieOut(GetTickMs()));
    }
}

void CReshdlWork::run_trace_worker() {
    while (!m_bStop.load(std::memory_order_relaxed)) {
        if (g_iResetDb.load() == 1) {
            usleep(kResetSleepMicroseconds);
            continue;
        }
        // A turn takes at most one retry and one new trace, so neither queue can starve the other.
        bool busy = false;
        const auto handle = [&](DelayNodePtr node) {
            if (node == nullptr) return;
            busy = true;
            zel::guarded("trace", [&] { HandleDelayEvent(std::move(node)); });
        };
        // A clock that went back lets a retry go at once.
        const int64_t now = time(nullptr);
        handle(m_delayQueue.take_if([now](const ST_DELAY_QUEQE_NODE& node) {
            // The subtraction is checked like all sums with the clock.
            const int64_t age = zel::checked_sub(now, node.tPushTime);
            return age < 0 || age >= kRetryDelaySeconds;
        }));
        handle(m_trcQueue.take());
        if (!busy) idle();
    }
}
