// The sibling modules, loaded at run time: the data store libzelds.so and the trace module libzeltrc.so. The data store
// is loaded first and unloaded last. In pure mode neither is ever loaded.
//
// The lock is held over a load or an unload, never during a trace. Who calls a module takes a share of its functions,
// so an unload returns at once and the library is closed with the last share.
#pragma once

#include "common/module_path.h"
#include "common/mutex.h"
#include "common/pure_mode.h"
#include "common/snapshot.h"
#include "platform/zel_trc.h"

// The data store as it is bound at the moment.
struct DsFunctionTable {
    zel::Dll hModule;
    ds_update_db_t ds_update_db = nullptr;
};

class SiblingModules {
public:
    // The answer is made once and kept for the life of the process.
    bool pure_mode() { return m_pureMode.enabled(); }

    // For a start: loads both and starts the trace module. False after an ERROR line. Throws std::bad_alloc. Either way
    // `unload` undoes what was done.
    bool load() EXCLUDES(mutex_);
    // For a stop: stops the trace module and unloads both. Does nothing to what is not loaded.
    void unload() EXCLUDES(mutex_);

    // The reset period of the data store: both modules are unloaded between the two. Each does nothing, silently, when
    // the period is (not) open already. Begin does not wait for a trace that is running. End closes the period whatever
    // happens, also when it throws std::bad_alloc. Any thread.
    void ResetDbBegin() EXCLUDES(mutex_);
    void ResetDbEnd() EXCLUDES(mutex_);

    // Tells the data store, if there is one, to bring its data up to date.
    void update_data_store() const;

private:
    bool LoadDsModule() REQUIRES(mutex_);
    bool LoadTrcModule() REQUIRES(mutex_);
    void stop_and_unload() REQUIRES(mutex_);

    zel::PlainMutex mutex_;
    zel::Snapshot<DsFunctionTable> m_dsModule;
    zel::PureMode m_pureMode;
};
