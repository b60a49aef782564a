// State of the module that several floors share.
#pragma once

#include <atomic>
#include <cstdint>

#include "common/mutex.h"
#include "platform/mbframe.h"

// Set by OnAdvised and never cleared, so that a second start does not attach again. Everything outgoing goes through
// it.
extern std::atomic<MbFrame::IDispatch*> g_pDispatcher;

// Guards start and stop of the pipeline. Created by the constructor of the plug-in object.
// Never destroyed: the plug-in object that it belongs to never is.
extern zel::Mutex& g_hWorkMutex;

// 1 inside the reset period of the data store.
extern std::atomic<int32_t> g_iResetDb;
