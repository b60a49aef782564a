#include "common/module_state.h"

#include "common/never_ends.h"

namespace {

constinit zel::NeverEnds<zel::Mutex> g_workMutex;

}  // namespace

std::atomic<MbFrame::IDispatch*> g_pDispatcher{nullptr};
zel::Mutex& g_hWorkMutex = *g_workMutex;
std::atomic<int32_t> g_iResetDb{0};
