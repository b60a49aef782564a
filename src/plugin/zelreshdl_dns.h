// The flat copy of a DNS hit. It is the only event whose data outlives the event object.
#pragma once

#include "common/queue_nodes.h"
#include "platform/mbframe.h"

// Null with a log line when the event has no DNS interface or no native record, or when there is no memory. The caller
// owns the record. On the bus thread.
ST_IOC_MSG* copy_dns_event(MbFrame::IEvent& event);

void log_no_native_event();
