// One job of the trace stage, in the trc queue or in the delay queue. The queue owns it; the thread that takes it out
// owns it from then on. The eliminator keeps its bare address between Push and Pop.
#pragma once

#include <atomic>

#include "common/queue_nodes.h"

struct ST_DELAY_QUEQE_NODE {
    uint32_t uType = 0;      // 769: the module completes a KOV alert; 770: a trace
    int64_t tPushTime = 0;   // seconds of time(); set when a trace job is made and before each retry
    uint32_t uTryCount = 0;  // times that it was pushed; 0 only in a KOV alert's first attempt
    // What the builder counted in the alert. The eliminator weighs the job by them; they stay 0 for other events.
    int32_t nProcessCount = 0;
    int32_t nRiskLevel = 0;
    std::atomic<bool> bDropped{false};  // set by the eliminator under its mutex, read by the trace worker without it
    NodePtr pNode;
};
using DelayNodePtr = std::unique_ptr<ST_DELAY_QUEQE_NODE>;
