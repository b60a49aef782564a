// The rest of the input as the payload of every event that carries one. The first byte says how the native record
// describes it: as it is, without data, or with a size that cannot be.
#include <string>
#include <string_view>

#include "bus_event.h"
#include "common/relaxed.h"
#include "common/statistics.h"
#include "fuzz.h"
#include "fuzz_alert.h"
#include "pipeline.h"
#include "plugin/zelreshdl_engine.h"

namespace {

enum Form : uint32_t { as_it_is, no_data, too_large, forms };

void check_outcome(const EventRow& row, std::string_view payload, Form form, const fuzz::Outcome& outcome) {
    const bool refused = form == too_large || (form == no_data && !payload.empty());
    FUZZ_CHECK(outcome.taken == !refused);
    if (!outcome.taken) FUZZ_CHECK(outcome.sent.empty());
    for (const fuzz::Sent& sent : outcome.sent) {
        if (sent.id == event_id::mem_detect) continue;
        const EVENT_ID expected = row.id == event_id::credible_event ? event_id::credible_report
                                  : row.id == event_id::trc_ex       ? event_id::finished_trace
                                                                     : event_id::first_report;
        FUZZ_CHECK(sent.id == expected && sent.source == row.id);
        // A common buffer gets a GUID of its own, and a document has one.
        const bool document = row.id == event_id::ioa_alert || row.id == event_id::memory_trojan;
        FUZZ_CHECK(document || sent.guid.size() == kGuidSize - 1);
        // The trace module's part gives back what it is given.
        if (row.id == event_id::trc_ex || row.id == event_id::kov) FUZZ_CHECK(sent.bytes == payload);
    }
}

// Through the plug-in's own call-back, where each is counted and then queued, shed or refused, in a pipeline that was
// not started: its queue takes events up to the limit of 0 and one more.
void check_intake(const EventRow& row, const void* native) {
    static CResultProcEngine& engine = *GetReshdlInstance();
    const auto sum = [] {
        return value_of(g_statistics.eventQueueTotalCount) + value_of(g_statistics.eventQueueOverflowCount);
    };
    const uint64_t received = value_of(g_statistics.recvAlarmCount);
    const uint64_t before = sum();
    fuzz::BusEvent event(row.id, native);
    FUZZ_CHECK(engine.OnEvent(&event, nullptr) == 0);
    FUZZ_CHECK(event.references() == 0);
    FUZZ_CHECK(value_of(g_statistics.recvAlarmCount) == received + 1);
    FUZZ_CHECK(sum() <= before + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Bytes input(data, size);
    const auto form = static_cast<Form>(input.below(forms));
    const std::string_view payload = input.rest();
    const bool deadly = ends_the_process(payload);
    const char* const bytes = form == as_it_is ? payload.data() : nullptr;
    const uint64_t length = form == too_large ? UINT64_MAX : payload.size();
    for (const EventRow& row : event_rows()) {
        if (!row.carries_buffer) continue;
        const fuzz::Native native(row.id, bytes, length);
        check_intake(row, native.incoming().native);
        const bool document = row.id == event_id::ioa_alert || row.id == event_id::memory_trojan;
        // What is ignored keeps its node for good, so that only intake is tried.
        if (row.build == nullptr || row.handle == nullptr || (document && deadly)) continue;
        check_outcome(row, payload, form, fuzz::run_event(row.id, native.incoming()));
    }
    return 0;
}
