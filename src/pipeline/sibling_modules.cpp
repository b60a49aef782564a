#include "pipeline/sibling_modules.h"

#include <memory>

#include "common/guard.h"
#include "common/log.h"
#include "common/module_state.h"
#include "common/trc_functions.h"

namespace {

constexpr const char* kUpdateDb = "ds_update_db";

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

constexpr auto kTrcNames = zel::names_of(kTrcFunctions);

void log_imported() { LOG_WARN("The module has been imported."); }

void log_no_address(int32_t result) { LOG_ERROR("dll_get_addr failed!0x%08x", static_cast<uint32_t>(result)); }

void log_not_loaded() { LOG_ERROR("load moudle failed!"); }

// Ends the reset period when it goes, also after an exception. Nobody could end the period otherwise.
struct ResetPeriodEnd {
    ~ResetPeriodEnd() { g_iResetDb.store(0); }
};

// A table is given out only when it is complete, so a caller never sees a module with half of its functions.
std::shared_ptr<DsFunctionTable> open_data_store() {
    auto table = std::make_shared<DsFunctionTable>();
    int32_t result = table->hModule.open(kDataStore.where());
    if (result < 0 || table->hModule.handle() == nullptr) {
        LOG_ERROR("ds dll open failed!0x%08x", static_cast<uint32_t>(result));
        return nullptr;
    }
    result = table->hModule.get(kUpdateDb, table->ds_update_db);
    if (result >= 0) return table;
    table->hModule.close();
    log_no_address(result);
    return nullptr;
}

std::shared_ptr<TrcFunctionTable> open_trace_module(const DsFunctionTable* data_store) {
    auto table = std::make_shared<TrcFunctionTable>();
    int32_t result = table->hModule.open(kTraceModule.where());
    // Without the data store a trace has nothing to work on.
    if (result < 0 || data_store == nullptr) {
        LOG_ERROR("zeltrc dll open failed!0x%08x", static_cast<uint32_t>(result));
        return nullptr;
    }
    for (const auto& function : kTrcFunctions) {
        result = function.bind(*table, function.name);
        if (result >= 0) continue;
        table->hModule.close();
        log_no_address(result);
        return nullptr;
    }
    return table;
}

}  // namespace

constinit const zel::LibraryRow kDataStore{"@/../lib/libzelds.so", {&kUpdateDb, 1}};
constinit const zel::LibraryRow kTraceModule{"@/../lib/libzeltrc.so", kTrcNames};

bool SiblingModules::can_load() {
    const auto data_store = open_data_store();
    if (data_store != nullptr && open_trace_module(data_store.get()) != nullptr) return true;
    log_not_loaded();
    return false;
}

// A failure leaves everything as it is: the caller ends a failed start with `unload`.
bool SiblingModules::load() {
    if (pure_mode()) return true;
    const zel::Lock lock(mutex_);
    if (!LoadDsModule() || !LoadTrcModule()) {
        log_not_loaded();
        return false;
    }
    const int32_t result = g_trcModule.get()->trace_event_init();
    if (result >= 0) return true;
    LOG_ERROR("trace_event_init failed!hr = 0x%08x", static_cast<uint32_t>(result));
    return false;
}

bool SiblingModules::LoadDsModule() {
    if (m_dsModule.get() != nullptr) {
        log_imported();
        return true;
    }
    auto table = open_data_store();
    if (table == nullptr) return false;
    m_dsModule.exchange(std::move(table));
    return true;
}

bool SiblingModules::LoadTrcModule() {
    if (g_trcModule.get() != nullptr) {
        log_imported();
        return true;
    }
    auto table = open_trace_module(m_dsModule.get().get());
    if (table == nullptr) return false;
    g_trcModule.exchange(std::move(table));
    return true;
}

void SiblingModules::unload() {
    const zel::Lock lock(mutex_);
    stop_and_unload();
}

void SiblingModules::stop_and_unload() {
    if (const auto table = g_trcModule.get(); table != nullptr && table->trace_event_uninit != nullptr)
        table->trace_event_uninit();
    // The trace module goes first: until its library is closed it may call the data store.
    g_trcModule.exchange(nullptr);
    m_dsModule.exchange(nullptr);
}

void SiblingModules::ResetDbBegin() {
    if (g_iResetDb.load() != 0) return;
    const zel::Lock lock(mutex_);
    if (g_iResetDb.load() != 0) return;  // another thread came first
    LOG_INFO("start reset_db_begin!");
    // Set before the unload, so that no new trace starts on a module that is about to go.
    g_iResetDb.store(1);
    stop_and_unload();
}

void SiblingModules::ResetDbEnd() {
    if (g_iResetDb.load() != 1) return;
    const zel::Lock lock(mutex_);
    if (g_iResetDb.load() != 1) return;
    // It ends the period after a failed load, too. The trace stage then works without the module, and each trace fails.
    const ResetPeriodEnd period_end;
    LOG_INFO("start reset_db_end!");
    if (pure_mode()) return;
    // Memory that runs out here would cost every trace until the next reset, so there is a second try.
    if (!zel::guarded("reload of the modules", [this]() NO_THREAD_SAFETY_ANALYSIS { reload(); })) reload();
}

void SiblingModules::reload() {
    if (!LoadDsModule() || !LoadTrcModule())
        log_not_loaded();
    else if (const auto table = g_trcModule.get(); table->trace_event_init != nullptr)
        // The answer is not looked at: the period is over in any case, and a module that refuses lets each trace fail.
        table->trace_event_init();
}

// The share keeps the library open during the call, also when another thread unloads it meanwhile.
void SiblingModules::update_data_store() const {
    const auto table = m_dsModule.get();
    if (table != nullptr && table->ds_update_db != nullptr) table->ds_update_db();
}
