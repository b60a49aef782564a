// What the targets for alert documents and the benchmarks share.
#pragma once

#include <string>
#include <string_view>

#include "decode/event_records.h"
#include "decode/jsonparse.h"

// A failed document leaves scratch state to the next good one; after this one there is none.
inline constexpr std::string_view kSmallest =
    R"({"alert_type":3,"risk_level":"","threat_score":0,"total_score":0,"verify_score":0,"verify_total_score":0,"count":0,)"
    R"("hash":0,"engine_ver":"","engine_rule_ver":"","rule":[],"Guid":""})";

// The node that the intake makes of a document, with a terminator behind the text.
inline NodePtr make_node(std::string_view document) {
    const std::string text(document);
    NodePtr node(new ST_QUEQE_NODE);
    node->uEventId = event_id::ioa_alert;
    node->uSize = text.size();
    node->pData = zel::copy_bytes(text.c_str(), text.size() + 1);
    return node;
}

// A decoded document with its records.
struct Decoded {
    explicit Decoded(std::string_view text)
        : node(make_node(text)), good(CEventHandle::GetJsonInfo(node.get(), data)) {}
    ~Decoded() { FreeBufData(data); }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;

    NodePtr node;
    ST_BUF_DATA data;
    bool good;
};

// The road ends the process on a file time of 0; such a document is not built.
inline bool has_zero_file_time(const ST_BUF_DATA& data) {
    for (const ST_RULE& rule : data.vecRule) {
        for (const ST_RAW_EVENT& event : rule.vecEvent) {
            const auto* times = event.pPrivate.as<PST_FILE_TIME_CHANGE>();
            if (times != nullptr && (times->llPostTime == 0 || times->llPreTime == 0)) return true;
        }
    }
    return false;
}
inline bool ends_the_process(std::string_view text) {
    const Decoded decoded(text);
    return decoded.good && has_zero_file_time(decoded.data);
}
