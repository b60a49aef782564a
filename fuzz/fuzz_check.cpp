// Any bytes as a document for libzelcheck.so: its verdict is what decoder and builder make of the same bytes, and every
// finding lies within them. The library has its own copy of decoder and builder.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "check/zelcheck_host.h"
#include "decode/event_records.h"
#include "decode/jsonparse.h"
#include "fuzz.h"
#include "platform/zel_support.h"
#include "trace/getprotobuf.h"

namespace {

constexpr std::string_view kSmallest =
    R"({"alert_type":3,"risk_level":"","threat_score":0,"total_score":0,"verify_score":0,"verify_total_score":0,"count":0,)"
    R"("hash":0,"engine_ver":"","engine_rule_ver":"","rule":[],"Guid":""})";

// A file time of 0 ends the process. The library says so; here such a document is not built.
bool has_zero_file_time(const ST_BUF_DATA& data) {
    for (const ST_RULE& rule : data.vecRule)
        for (const ST_RAW_EVENT& event : rule.vecEvent) {
            const auto* times = event.pPrivate.as<PST_FILE_TIME_CHANGE>();
            if (times != nullptr && (times->llPostTime == 0 || times->llPreTime == 0)) return true;
        }
    return false;
}

// What decoder and builder make of a text. A document with a file time of 0 may be refused before it is built so far.
bool fits(std::string_view text, zelcheck_verdict verdict) {
    ST_QUEQE_NODE node;
    node.uEventId = event_id::ioa_alert;
    node.uSize = text.size();
    node.pData = zel::calloc_buffer(text.size() + 1);
    text.copy(node.pData.get(), text.size());
    ST_BUF_DATA data;
    const bool decoded = CEventHandle::GetJsonInfo(&node, data);
    std::erase_if(data.vecRule, [](const ST_RULE& rule) { return rule.strStatus == "Trigger"; });
    if (!decoded) return verdict == ZELCHECK_REFUSED;
    if (data.vecRule.empty()) return verdict == ZELCHECK_SKIPPED;
    if (verdict == ZELCHECK_FATAL) return has_zero_file_time(data);
    if (has_zero_file_time(data)) return true;
    zel::MallocBuffer buffer;
    int events = 0;
    int level = 0;
    const bool built = CGetProtobuf::GetComProtobuf(data, false, buffer, events, level, event_id::ioa_alert) != 0;
    return built ? verdict == ZELCHECK_ACCEPTED || verdict == ZELCHECK_REPEAT : verdict == ZELCHECK_REFUSED;
}

zelcheck* open_checker() {
    setenv("agentid", "fuzz", 1);
    zelcheck* checker = nullptr;
    FUZZ_CHECK(zelcheck_open(ZEL_LOG_DEBUG, &checker) == 0);
    return checker;
}

const zelcheck_result& check(std::string_view text) {
    static zelcheck* const checker = open_checker();
    const zelcheck_result* result = nullptr;
    FUZZ_CHECK(zelcheck_document(checker, event_id::ioa_alert, text.data(), text.size(), &result) == 0);
    return *result;
}

void look_at(const zelcheck_finding& finding, size_t size) {
    FUZZ_CHECK(finding.offset <= size && finding.size <= size - finding.offset);
    FUZZ_CHECK(strlen(finding.reason) > 0 && strcmp(finding.reason, ZELCHECK_UNEXPLAINED) != 0);
    FUZZ_CHECK(memchr(finding.path, '\n', strlen(finding.path)) == nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // A failed document leaves something to the next good one; after this one there is nothing left.
    FUZZ_CHECK(check(kSmallest).verdict == ZELCHECK_SKIPPED && fits(kSmallest, ZELCHECK_SKIPPED));

    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const zelcheck_result& result = check(text);
    const bool refused = result.verdict == ZELCHECK_REFUSED || result.verdict == ZELCHECK_FATAL;
    FUZZ_CHECK(refused == (result.refusal != nullptr));
    if (refused) look_at(*result.refusal, size);
    for (size_t i = 0; i < result.warning_count; ++i) look_at(result.warnings[i], size);
    FUZZ_CHECK(fits(text, result.verdict));
    return 0;
}
