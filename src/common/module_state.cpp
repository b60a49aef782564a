#include "common/module_state.h"

std::atomic<MbFrame::IDispatch*> g_pDispatcher{nullptr};
zel::Mutex& g_hWorkMutex = *new zel::Mutex;
std::atomic<int32_t> g_iResetDb{0};
