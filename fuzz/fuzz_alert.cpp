// Any bytes as the text of event 1536: decoded, built into a message, and freed.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz.h"
#include "fuzz_alert.h"
#include "retrace.pb.h"
#include "trace/getprotobuf.h"

namespace {

struct Decoded {
    explicit Decoded(std::string_view text)
        : node(make_node(text)), good(CEventHandle::GetJsonInfo(node.get(), data)) {}
    ~Decoded() { FreeBufData(data); }

    NodePtr node;
    ST_BUF_DATA data;
    bool good;
};

std::string build(ST_BUF_DATA& data, int& events) {
    zel::MallocBuffer buffer;
    int level = 0;
    const uint64_t size = CGetProtobuf::GetComProtobuf(data, false, buffer, events, level, event_id::ioa_alert);
    FUZZ_CHECK((size == 0) == (buffer == nullptr));
    FUZZ_CHECK(level >= 0 && level <= 5);
    return size == 0 ? std::string() : std::string(buffer.get(), size);
}

// The text check lets some bytes pass that a parser refuses; plain ASCII must come through whole.
void check_message(const std::string& bytes, const ST_BUF_DATA& data, int events, bool ascii) {
    vorn_retrace::vorn_trace_info message;
    const bool parsed = message.ParseFromString(bytes);
    FUZZ_CHECK(parsed || !ascii);
    if (!parsed) return;
    FUZZ_CHECK(message.SerializeAsString() == bytes);
    FUZZ_CHECK(message.threat().alert_guid() == data.strGuid);
    FUZZ_CHECK(static_cast<size_t>(message.threat().alert_rule_size()) == data.vecRule.size());
    int written = 0;
    for (const auto& rule : message.threat().alert_rule()) written += rule.alert_event_size();
    FUZZ_CHECK(written == events);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    // A failed document leaves scratch state to the next good one; after this one there is none.
    FUZZ_CHECK(Decoded(kSmallest).good);

    Decoded first(text);
    const char* guid = first.node->szGuid;
    FUZZ_CHECK(first.data.strGuid == std::string(guid, strnlen(guid, kGuidSize)));
    if (!first.good || has_zero_file_time(first.data)) return 0;
    int events = 0;
    const std::string message = build(first.data, events);
    const bool ascii = text.find("\\u") == std::string_view::npos &&
                       std::all_of(text.begin(), text.end(), [](char c) { return static_cast<signed char>(c) >= 0; });
    if (!message.empty()) check_message(message, first.data, events, ascii);

    Decoded second(text);
    int events_again = 0;
    FUZZ_CHECK(second.good && build(second.data, events_again) == message && events_again == events);
    return 0;
}
