// The flat copy of a DNS hit. It is the only event whose data outlives the event object.
#pragma once

#include <memory>

#include "common/queue_nodes.h"
#include "platform/mbframe.h"

// Null with a log line when the event has no DNS interface or no native record, or when there is no memory. On the bus
// thread.
std::unique_ptr<ST_IOC_MSG> copy_dns_event(MbFrame::IEvent& event);

void log_no_native_event();
