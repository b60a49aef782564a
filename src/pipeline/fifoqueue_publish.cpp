#include "pipeline/fifoqueue_publish.h"

#include "common/guard.h"
#include "common/log.h"
#include "common/reshdlevent.h"
#include "trace/getprotobuf.h"

void report_repeats(const ResHdlCache::CFifoQueue::Entries& entries) {
    if (entries.empty()) return;
    zel::guarded("batch of repeats", [&] {
        zel::MallocBuffer buffer;
        const uint64_t size = CGetProtobuf::GetDupAlertProtobuf(entries, buffer);
        if (size == 0) return;
        // The GUID is empty, because the batch stands for many alerts.
        const auto sent = InvokeEvent(event_id::finished_trace, event_id::ioc, {std::move(buffer), size}, "");
        if (sent.event == nullptr) LOG_ERROR("trc dup invoke failed!");
    });
}
