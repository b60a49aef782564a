// The sibling modules, loaded at run time: the data store first, the trace module with it.
#include "common/log.h"
#include "common/module_path.h"
#include "pipeline/reshdlwork.h"

namespace {

template <auto Member>
int32_t bind(TrcFunctionTable& table, const char* name) {
    return table.hModule.get(name, table.*Member);
}

// In the order in which they are looked up.
constexpr struct {
    const char* name;
    int32_t (*bind)(TrcFunctionTable& table, const char* name);
} kTrcFunctions[] = {
    {"trace_event_init", bind<&TrcFunctionTable::trace_event_init>},
    {"trace_event_uninit", bind<&TrcFunctionTable::trace_event_uninit>},
    {"trace_event_release", bind<&TrcFunctionTable::trace_event_release>},
    {"trace_event_create_by_alert", bind<&TrcFunctionTable::trace_event_create_by_alert>},
    {"trace_event_process_completion", bind<&TrcFunctionTable::trace_event_process_completion>},
    {"trace_event_expand_from_mgr", bind<&TrcFunctionTable::trace_event_expand_from_mgr>},
    {"trace_event_coordinate_dispose_trc", bind<&TrcFunctionTable::trace_event_coordinate_dispose_trc>},
};

void log_imported() { LOG_WARN("The module has been imported."); }

void log_no_address(int32_t result) { LOG_ERROR("dll_get_addr failed!0x%08x", static_cast<uint32_t>(result)); }

bool log_not_loaded() {
    LOG_ERROR("load moudle failed!");
    return false;
}

}  // namespace

bool CReshdlWork::LoadModules() {
    const zel::Lock lock(m_moduleMutex);
    if (!LoadDsModule() || !LoadTrcModule()) return log_not_loaded();
    const int32_t result = g_trcModule.get()->trace_event_init();
    if (result < 0) {
        LOG_ERROR("trace_event_init failed!hr = 0x%08x", static_cast<uint32_t>(result));
        return false;
    }
    return true;
}

bool CReshdlWork::LoadDsModule() {
    if (m_dsModule.get() != nullptr) {
        log_imported();
        return true;
    }
    auto table = std::make_shared<DsFunctionTable>();
    int32_t result = table->hModule.open(zel::module_path("@/../lib/libzelds.so"));
    if (result < 0 || table->hModule.handle() == nullptr) {
        LOG_ERROR("ds dll open failed!0x%08x", static_cast<uint32_t>(result));
        return false;
    }
    result = table->hModule.get("ds_update_db", table->ds_update_db);
    if (result < 0) {
        table->hModule.close();
        log_no_address(result);
        return false;
    }
    m_dsModule.exchange(std::move(table));
    return true;
}

bool CReshdlWork::LoadTrcModule() {
    if (g_trcModule.get() != nullptr) {
        log_imported();
        return true;
    }
    auto table = std::make_shared<TrcFunctionTable>();
    int32_t result = table->hModule.open(zel::module_path("@/../lib/libzeltrc.so"));
    // The second test is on the data store, without which a trace has nothing to work on.
    if (result < 0 || m_dsModule.get() == nullptr) {
        LOG_ERROR("zeltrc dll open failed!0x%08x", static_cast<uint32_t>(result));
        return false;
    }
    for (const auto& function : kTrcFunctions) {
        result = function.bind(*table, function.name);
        if (result >= 0) continue;
        table->hModule.close();
        log_no_address(result);
        return false;
    }
    g_trcModule.exchange(std::move(table));
    return true;
}

void CReshdlWork::UnloadTrcModule() { g_trcModule.exchange(nullptr); }

void CReshdlWork::UnloadDsModule() { m_dsModule.exchange(nullptr); }

void CReshdlWork::uninit_trace_module() {
    const auto table = g_trcModule.get();
    if (table != nullptr && table->trace_event_uninit != nullptr) table->trace_event_uninit();
}

void CReshdlWork::ResetDbBegin() {
    if (g_iResetDb.load() != 0) return;
    const zel::Lock lock(m_moduleMutex);
    if (g_iResetDb.load() != 0) return;  // another thread came first
    LOG_INFO("start reset_db_begin!");
    g_iResetDb.store(1);
    uninit_trace_module();
    UnloadTrcModule();
    UnloadDsModule();
}

void CReshdlWork::ResetDbEnd() {
    if (g_iResetDb.load() != 1) return;
    const zel::Lock lock(m_moduleMutex);
    if (g_iResetDb.load() != 1) return;
    LOG_INFO("start reset_db_end!");
    // In pure mode nothing was unloaded, and nothing is ever loaded.
    if (!m_pureMode.enabled()) {
        if (!LoadDsModule() || !LoadTrcModule())
            log_not_loaded();
        else if (const auto table = g_trcModule.get(); table->trace_event_init != nullptr)
            table->trace_event_init();
    }
    // Also after a failure: the trace stage then works without the module.
    g_iResetDb.store(0);
}
