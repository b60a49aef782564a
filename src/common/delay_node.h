// One unit of work of the trace stage, in the trc queue or the delay queue.
#pragma once

#include <atomic>

#include "common/queue_nodes.h"

struct ST_DELAY_QUEQE_NODE {
    uint32_t uType = 0;      // 769: KOV completion step, 770: trace step
    int64_t tPushTime = 0;   // seconds of time(); set when the node is made and on every retry
    uint32_t uTryCount = 0;  // attempts so far
    int32_t nProcessCount = 0;
    int32_t nRiskLevel = 0;
    std::atomic<bool> bDropped{false};  // set by the eliminator under its mutex, read by the trace worker without it
    NodePtr pNode;
};
using DelayNodePtr = std::unique_ptr<ST_DELAY_QUEQE_NODE>;
