// The flat copy of a DNS hit. A hit is the only event whose native record points to further texts, so it is copied deep
// while the bus's call runs.
#pragma once

#include <memory>

#include "common/queue_nodes.h"
#include "platform/mbframe.h"

// Copies the hit and works out its cache key. Null after a log line when the event has no DNS interface or no native
// record, or when there is no memory. May throw std::bad_alloc for the query name. On the bus thread.
std::unique_ptr<ST_IOC_MSG> copy_dns_event(MbFrame::IEvent& event);

// One text for both kinds of events.
void log_no_native_event();
