#include "platform/zelreshdl.h"

#include "common/guard.h"
#include "common/log.h"
#include "common/module_state.h"
#include "common/statistics.h"
#include "common/zel_bpsdk_api.h"
#include "pipeline/reshdlwork.h"
#include "plugin/zelbpmgr_api.h"
#include "plugin/zelreshdl_config.h"
#include "plugin/zelreshdl_engine.h"
#include "plugin/zelreshdl_report.h"

namespace {

constexpr int kFailed = -1;
constexpr int kInReset = -2;
constexpr int kFileKind = 1;

template <class Body>
int exported(Body body) {
    int result = kFailed;
    // The host calls through a C interface, so no exception may reach it. After an ERROR line it gets -1.
    zel::guarded("call", [&] { result = body(); });
    return result;
}

void register_report(const char* module, zel_report_cb_t callback) {
    if (!ZelbpmgrApi::Instance().Register(module, callback)) ZelbpmgrApi::log_not_registered();
}

// Attaches to the bus unless an earlier start has done so, and starts the pipeline. A start that fails at any step,
// also by an exception, undoes all of it: the bus is detached, and a dispatcher that this start was given is forgotten,
// so that the next start attaches as if it were the first.
bool start_work(CResultProcEngine& engine) {
    LOG_INFO("zelreshdl start work thread!");
    const bool attached_before = g_pDispatcher.load(std::memory_order_acquire) != nullptr;
    bool attached = attached_before;
    if (!attached) {
        zel::guarded("attachment", [&] { attached = engine.LoadMbDll(); });
        if (!attached) log_no_bus();
    }
    if (attached && g_reshdlWork.Init()) return true;
    engine.Detach();
    if (!attached_before) g_pDispatcher.store(nullptr, std::memory_order_release);
    return false;
}

bool is_resetting() { return g_iResetDb.load() == 1; }

int invalid_parameter() {
    LOG_ERROR("Invalid parameter!");
    return kFailed;
}

int log_stop() {
    LOG_INFO("stop handled event.");
    return 0;
}

}  // namespace

int plugin_init(void) {
    return exported([] {
        LOG_INFO("Start handled event.");
        // Reporting comes first. Without it the start goes on.
        ZelBpSdkApi::Instance().Init();
        ZelbpmgrApi::Instance().Init();
        for (const ReportRow& row : kReports) register_report(row.module, row.callback);
        // A start begins with figures of 0; what an earlier run counted and did not report is gone.
        g_liveTraceCost.reset();
        g_reportTraceCost.reset();
        g_statistics.reset();
        CResultProcEngine* const engine = GetReshdlInstance();
        if (engine == nullptr) {
            LOG_ERROR("GetReshdlInstance failed.");
            return kFailed;
        }
        return start_work(*engine) ? 0 : kFailed;
    });
}

int plugin_uninit(void) {
    LOG_INFO("Stop handled event.");
    LOG_INFO("stop work thread!");
    zel::guarded("call", [] {
        // The bus first, so that no event arrives while the pipeline stops. Without a mutex nothing has started, and an
        // object is not made just to be stopped.
        if (g_hWorkMutex.valid()) GetReshdlInstance()->Detach();
        g_reshdlWork.Uninit();
        ZelbpmgrApi& manager = ZelbpmgrApi::Instance();
        // Until here the manager may still ask: the figures outlive the pipeline.
        for (const ReportRow& row : kReports) manager.Register(row.module, nullptr);
        manager.Close();
    });
    return 0;
}

// These three do nothing: the work begins with plugin_init and ends with plugin_uninit.
int plugin_start(void) {
    LOG_INFO("start handled event.");
    return 0;
}

int plugin_stop(void) { return log_stop(); }

int plugin_update(void) { return log_stop(); }  // with the text of the stop

int plugin_configuration_update(const char* data, uint32_t size) {
    return exported([&] { return update_configuration(data, size); });
}

// Both traces look at the reset period first. So wrong arguments have no line and another answer while it lasts.
int reshdl_file_trace(fn_server_ret_t fun, const char* path, const char* file_key, int kind, uint32_t context) {
    return exported([&] {
        if (is_resetting()) return kInReset;
        if (fun == nullptr || path == nullptr || file_key == nullptr) return invalid_parameter();
        LOG_INFO("start file trace!");
        // The host may ask before the first start. The object and its mutex are made here then.
        GetReshdlInstance();
        const EVENT_ID id = kind == kFileKind ? event_id::file_trace_file : event_id::file_trace_process;
        return g_reshdlWork.FileTrace(fun, path, file_key, id, context);
    });
}

int reshdl_process_trace(fn_server_ret_t fun, const char* data, uint32_t size, uint32_t context) {
    return exported([&] {
        if (is_resetting()) return kInReset;
        if (fun == nullptr || data == nullptr || size == 0) return invalid_parameter();
        LOG_INFO("start proc trace!");
        GetReshdlInstance();
        return g_reshdlWork.ProcTrace(fun, data, size, context);
    });
}

void reset_db_begin(void) {
    zel::guarded("call", [] { g_reshdlWork.ResetDbBegin(); });
}

void reset_db_end(void) {
    zel::guarded("call", [] { g_reshdlWork.ResetDbEnd(); });
}
