// Any bytes as a document for libzelcheck.so: its verdict is what decoder and builder make of the same bytes, and every
// finding lies within them. The library has its own copy of decoder and builder.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "check/zelcheck_host.h"
#include "fuzz.h"
#include "fuzz_alert.h"
#include "json_mutator.h"
#include "platform/zel_support.h"
#include "trace/getprotobuf.h"

const size_t fuzz::head_size = 0;

namespace {

// What decoder and builder make of a text. A document with a file time of 0 may be refused before it is built so far.
bool fits(std::string_view text, zelcheck_verdict verdict) {
    const NodePtr node = make_node(text);
    ST_BUF_DATA data;
    const bool decoded = CEventHandle::GetJsonInfo(node.get(), data);
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
