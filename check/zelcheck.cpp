// The C interface for documents: runs the plug-in's own intake and alert stage on the caller's thread, with a bus that
// keeps nothing.
#include "check/zelcheck_host.h"

#include <google/protobuf/stubs/logging.h>

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "check/explain.h"
#include "check/log_lines.h"
#include "check/observation.h"
#include "check/process_end.h"
#include "common/module_state.h"
#include "common/statistics.h"
#include "pipeline/reshdlwork.h"
#include "platform/native_payloads.h"
#include "suppress/alert_filter.h"

using zel::check::Explanation;
using zel::check::Finding;
using zel::check::Observation;
using zel::check::observation;
using zel::check::Way;

namespace {

// Sees the reports and lets them go.
class Outside final : public MbFrame::IDispatch {
public:
    int32_t Invoke(MbFrame::IEvent* event) override {
        if (event->GetEventId() == event_id::first_report) reported_ = true;
        return 0;
    }
    void begin() { reported_ = false; }
    bool reported() const { return reported_; }

private:
    bool reported_ = false;
};

constinit Outside g_outside;

// The queues stay empty here. Any limit above 0 keeps the busy test from dropping alerts.
constexpr uint32_t kQueueMax = 100;

zelcheck_finding view_of(const Finding& finding) {
    return {finding.reason.c_str(), finding.path.c_str(), finding.offset, finding.size};
}

// From the tree, because the node is gone by now. A longer text loses its end, as in the node.
std::optional<std::string> guid_of(const Observation& seen) {
    const char* const guid = cJSON_GetStringValue(cJSON_GetObjectItem(seen.tree.get(), "Guid"));
    if (guid == nullptr) return std::nullopt;
    return std::string(guid, strnlen(guid, kGuidSize));
}

}  // namespace

// A pipeline that was never started: without workers, without modules, with tracing turned off. The record that is
// given out points into the members, so they stay unchanged until the next document.
struct zelcheck {
    CReshdlWork work;
    std::optional<std::string> guid;
    Explanation explanation;
    std::vector<zelcheck_finding> warnings;
    std::vector<zelcheck_line> lines;
    zelcheck_finding refusal;
    zelcheck_result result;
    google::protobuf::LogHandler* log_handler;  // that was there before

    void run(const EventRow& row, std::string_view text);
    void publish_result(zelcheck_verdict verdict);
};

namespace {

// Event 1536 has a native record of its own. Event 1538 comes in the common one.
NodePtr make_node(const EventRow& row, std::string_view text) {
    char* const data = const_cast<char*>(text.data());  // the native records are C structures; nobody writes there
    Incoming incoming;
    ST_JSON_BUFFER document{data, text.size()};
    ST_COMMON_BUFFER common{row.id, text.size(), data};
    incoming.native = row.id == event_id::ioa_alert ? static_cast<const void*>(&document) : &common;
    return row.build(incoming, row.id);
}

uint64_t value(const std::atomic<uint64_t>& counter) { return counter.load(std::memory_order_relaxed); }

// A document that was not decoded and one that was not built are the same to the agent: no alert is reported.
zelcheck_verdict verdict_of(Way way, bool repeated) {
    switch (way) {
        case Way::reported: return repeated ? ZELCHECK_REPEAT : ZELCHECK_ACCEPTED;
        case Way::skipped: return ZELCHECK_SKIPPED;
        case Way::process_ended: return ZELCHECK_FATAL;
        default: return ZELCHECK_REFUSED;
    }
}

}  // namespace

// The plug-in's own counters tell how far the document came. They are compared with their values before, because they
// run on from document to document. The way is asked for from the end of the road: a document that was reported was
// also decoded.
void zelcheck::run(const EventRow& row, std::string_view text) {
    Observation& seen = observation();
    seen.clear();
    zel::check::log_lines().clear();
    g_outside.begin();
    const uint64_t repeats = value(g_statistics.alertEventFilterCount);
    const uint64_t alerts = value(g_statistics.alertEventTotalCount);
    std::string process_end;
    NodePtr node = make_node(row, text);
    if (node == nullptr) throw std::bad_alloc();
    try {
        (work.*row.handle)(std::move(node));
    } catch (const zel::check::ProcessEnd& end) {
        process_end = end.what();
    }
    Way way = Way::not_decoded;
    if (!process_end.empty())
        way = Way::process_ended;
    else if (g_outside.reported())
        way = Way::reported;
    else if (value(g_statistics.alertEventTotalCount) != alerts)
        way = Way::not_built;
    else if (seen.decoded)
        way = Way::skipped;
    guid = guid_of(seen);
    explanation = zel::check::explain(text, seen, way, process_end);
    publish_result(verdict_of(way, value(g_statistics.alertEventFilterCount) != repeats));
}

// The result is filled last, since the lists move while they grow.
void zelcheck::publish_result(zelcheck_verdict verdict) {
    warnings.clear();
    for (const Finding& warning : explanation.warnings) warnings.push_back(view_of(warning));
    lines.clear();
    for (const auto& line : zel::check::log_lines().lines()) lines.push_back({line.level, line.text.c_str()});
    if (explanation.refusal.has_value()) refusal = view_of(*explanation.refusal);
    result = {verdict,
              guid.has_value() ? guid->c_str() : nullptr,
              explanation.refusal.has_value() ? &refusal : nullptr,
              warnings.data(),
              warnings.size(),
              lines.data(),
              lines.size()};
}

int32_t zelcheck_open(int32_t log_level, zelcheck** out) {
    std::unique_ptr<zelcheck> checker(new (std::nothrow) zelcheck);
    if (checker == nullptr) return -1;
    checker->work.SetQueueMax(kQueueMax);
    g_pDispatcher.store(&g_outside, std::memory_order_release);
    zel::check::log_lines().set_level(log_level);
    // protobuf would write on standard error about each text that is no UTF-8 in all strictness.
    checker->log_handler = google::protobuf::SetLogHandler(nullptr);
    *out = checker.release();
    return 0;
}

void zelcheck_close(zelcheck* checker) {
    if (checker == nullptr) return;
    google::protobuf::SetLogHandler(checker->log_handler);
    // What the checker has seen is forgotten with it.
    ResHdlAlert::AlertFilter::place().reset();
    delete checker;
}

// Any other id is taken for 1536.
int32_t zelcheck_document(zelcheck* checker, uint32_t event_id, const char* text, uint64_t size,
                          const zelcheck_result** result) {
    const EventRow* const row = find_event_row(event_id == event_id::memory_trojan ? event_id : event_id::ioa_alert);
    try {
        checker->run(*row, std::string_view(text, size));
    } catch (const std::bad_alloc&) {
        return -1;
    }
    *result = &checker->result;
    return 0;
}
