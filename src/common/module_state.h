// State of the module that several floors share. All of it never ends: threads of the bus and of the host may use it up
// to the last moment of the process.
#pragma once

#include <atomic>
#include <cstdint>

#include "common/mutex.h"
#include "platform/mbframe.h"

// Everything outgoing goes through it. Set by OnAdvised and never cleared, so that a second start does not attach again.
extern std::atomic<MbFrame::IDispatch*> g_pDispatcher;

// Guards start and stop of the pipeline. Its handle is made by the constructor of the plug-in object.
extern zel::Mutex& g_hWorkMutex;

// 1 inside the reset period of the data store.
extern std::atomic<int32_t> g_iResetDb;
