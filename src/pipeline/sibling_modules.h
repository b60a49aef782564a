// The sibling modules, which are loaded at run time: the data store libzelds.so and the trace module libzeltrc.so. The
// data store is loaded first and unloaded last, because the trace module works on its data. In pure mode neither is
// ever loaded.
//
// The lock is held over a load or an unload and never during a trace. A caller takes a share of a module's functions.
// So an unload returns at once, and the library is closed with the last share.
#pragma once

#include "common/module_path.h"
#include "common/mutex.h"
#include "common/pure_mode.h"
#include "common/snapshot.h"
#include "platform/zel_trc.h"

extern const zel::LibraryRow kDataStore;
extern const zel::LibraryRow kTraceModule;

// The data store that is bound at the moment.
struct DsFunctionTable {
    zel::Dll hModule;
    ds_update_db_t ds_update_db = nullptr;
};

class SiblingModules {
public:
    // The answer is made once and kept until the process ends. Any thread.
    bool pure_mode() { return m_pureMode.enabled(); }

    // For a start: loads both modules and starts the trace module. False after an ERROR line; may also throw
    // std::bad_alloc. In both cases `unload` undoes what was done.
    bool load() EXCLUDES(mutex_);
    // Whether `load` would find both modules with all their functions outside pure mode: it opens and closes them and
    // starts nothing. False after the ERROR lines of a load that fails. Throws std::bad_alloc.
    static bool can_load();
    // For a stop: stops the trace module and unloads both. Does nothing to a module that is not loaded.
    void unload() EXCLUDES(mutex_);

    // The reset period of the data store. Both modules are unloaded from Begin to End, so that the agent can replace
    // the data. A second Begin does nothing, and so does an End without a period; neither logs anything. Begin does not
    // wait for a trace that is running. End closes the period in any case, also when it throws std::bad_alloc: no later
    // call could close it. Any thread.
    void ResetDbBegin() EXCLUDES(mutex_);
    void ResetDbEnd() EXCLUDES(mutex_);

    // Tells the data store to bring its data up to date, if it is loaded. A trace that was "not ready" often waits for
    // just that. Any thread.
    void update_data_store() const;

private:
    bool LoadDsModule() REQUIRES(mutex_);
    bool LoadTrcModule() REQUIRES(mutex_);
    void reload() REQUIRES(mutex_);
    void stop_and_unload() REQUIRES(mutex_);

    zel::PlainMutex mutex_;
    zel::Snapshot<DsFunctionTable> m_dsModule;
    zel::PureMode m_pureMode;
};
