// The behaviour chain of an alert, made from the alert's own events.
#pragma once

#include "retrace.pb.h"

// Fills trace_event, trace_start and trace_end from the events of all rules, in their order; what trace_event held
// before is gone. One process vertex for each distinct process, one vertex for each other object, numbered from 1 in
// the order of their appearance, and one edge for each event that has an object.
void build_chain(vorn_retrace::vorn_trace_info& message);
