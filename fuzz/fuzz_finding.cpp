// Any bytes as the payload of the findings 1540 to 1542 and of the detection results 1543 and 1544.
#include <string>
#include <string_view>

#include "fuzz.h"
#include "retrace.pb.h"
#include "trace/getprotobuf.h"

namespace {

struct Message {
    Message(EVENT_ID id, std::string_view payload, uint64_t (*builder)(ST_QUEQE_NODE&, zel::MallocBuffer&)) {
        ST_QUEQE_NODE node;
        node.uEventId = id;
        node.uSize = payload.size();
        const std::string text(payload);
        node.pData = zel::copy_bytes(text.c_str(), text.size() + 1);
        zel::MallocBuffer buffer;
        const uint64_t size = builder(node, buffer);
        FUZZ_CHECK(size > 0 && buffer != nullptr);
        parsed = info.ParseFromArray(buffer.get(), static_cast<int>(size));
    }

    vorn_retrace::vorn_trace_info info;
    bool parsed;
};

}  // namespace

[[maybe_unused]] static const int g_agent_id = setenv("agentid", "fuzz", 1);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view payload(reinterpret_cast<const char*>(data), size);
    for (const EVENT_ID id : {event_id::port_scan, event_id::brute_force, event_id::abnormal_login}) {
        const Message finding(id, payload, CGetProtobuf::GetBfProtobuf);
        if (!finding.parsed) continue;  // the payload is no UTF-8, which the builder does not look at
        FUZZ_CHECK(finding.info.alert_json() == payload.substr(0, payload.find('\0')));
        FUZZ_CHECK(finding.info.trace_tags_exs_size() == 1 && finding.info.trace_tags_exs(0).str_data() == "AbnormalL");
    }
    for (const EVENT_ID id : {event_id::credible_event, event_id::event_detect}) {
        const Message result(id, payload, CGetProtobuf::GetDetanalProtobuf);
        if (result.parsed) FUZZ_CHECK(result.info.agent_id() == "fuzz");
    }
    return 0;
}
