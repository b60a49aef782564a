// State of the module that several floors share. None of it is ever destroyed: threads of the bus and of the host may
// use it up to the last moment of the process.
#pragma once

#include <atomic>
#include <cstdint>

#include "common/mutex.h"
#include "platform/mbframe.h"

// All outgoing events go through it. It belongs to the bus, which keeps it valid until the process ends. OnAdvised sets
// it, and a stop does not clear it, so a start after a stop does not attach to the bus again. A start that fails clears
// what it was given itself.
extern std::atomic<MbFrame::IDispatch*> g_pDispatcher;

// Held over start and stop of the pipeline. The constructor of the plug-in object makes its handle. Without a handle
// there was no start, and so there is nothing to stop.
extern zel::Mutex& g_hWorkMutex;

// 1 while the data store is being reset. Events are ignored and traces wait then.
extern std::atomic<int32_t> g_iResetDb;
