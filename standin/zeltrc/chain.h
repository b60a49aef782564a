// The behaviour chain of an alert. The real module asks its data store; this one makes the chain from the alert's own
// events.
#pragma once

#include "retrace.pb.h"

// Fills trace_event, trace_start and trace_end from the events of all rules, in their order. What trace_event held
// before is gone. Each distinct process gets one vertex, and so does every other object. Vertices are numbered from 1
// as they appear. Each event that has an object gets one edge. Throws std::bad_alloc.
void build_chain(vorn_retrace::vorn_trace_info& message);
