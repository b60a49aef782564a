// Steps that several handlers share.
#pragma once

#include "common/delay_node.h"
#include "common/memory.h"
#include "common/reshdlevent.h"

// False with its log line when a builder gave no message.
bool is_built(const zel::MallocBuffer& buffer, uint64_t size);

// Publishes a builder's message under the node's id and GUID. The buffer belongs to the event then; without an event it
// is still in `buffer`.
ReshdlEventTrace::EventRef publish_built(EVENT_ID type, const ST_QUEQE_NODE& node, zel::MallocBuffer& buffer,
                                         uint64_t size);

// A copy of `size` bytes in a calloc buffer, null when there is no memory. `data` may be null with size 0.
zel::MallocBuffer copy_message(const char* data, uint64_t size);

// A trace job for its first push, with the time of now; null when there is no memory, the node is freed then.
DelayNodePtr new_trace_job(NodePtr node);
