// Builds messages and shows them as text, by the numbers of the schema.
#pragma once

#include <gmock/gmock.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <bit>
#include <cstdlib>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "trace/getprotobuf.h"

namespace zel_test {

using Lines = std::vector<LogLine>;
using google::protobuf::internal::WireFormatLite;

// "NUMBER=VALUE ..." in the order of the wire; whole numbers as signed 64-bit ones, messages in braces. `depth` is that
// of the message: 0 vorn_trace_info, 1 threat_alert, 2 threat_rule, 3 threat_event, 4 what is in it.
inline std::string show(const std::string& bytes, size_t depth = 0) {
    static const std::set<int> kMessages[] = {{8, 16}, {11}, {8, 13}, {}, {}};
    google::protobuf::io::CodedInputStream in(reinterpret_cast<const uint8_t*>(bytes.data()),
                                              static_cast<int>(bytes.size()));
    std::string shown, text;
    while (const uint32_t tag = in.ReadTag()) {
        const int number = WireFormatLite::GetTagFieldNumber(tag);
        const auto type = WireFormatLite::GetTagWireType(tag);
        uint64_t value = 0;
        uint32_t size = 0;
        shown += (shown.empty() ? "" : " ") + std::to_string(number) + "=";
        if (type == WireFormatLite::WIRETYPE_VARINT && in.ReadVarint64(&value))
            shown += std::to_string(static_cast<int64_t>(value));
        else if (type == WireFormatLite::WIRETYPE_FIXED32 && in.ReadLittleEndian32(&size))
            shown += std::to_string(static_cast<int>(std::bit_cast<float>(size)));
        else if (in.ReadVarint32(&size) && in.ReadString(&text, static_cast<int>(size)))
            shown += depth == 3 || kMessages[depth].contains(number)
                         ? "{" + show(text, number == 13 || number == 16 ? 4 : depth + 1) + "}"
                         : text;
    }
    return shown;
}

struct Built {
    std::string shown;  // empty after a failure
    Lines lines;        // without debug lines and the one about the agent id "me"
    int nProcessCount = 0;
    int nRiskLevel = 0;
};

inline const char* agent_id = "me";

inline Built build(const std::function<uint64_t(Built&, zel::MallocBuffer&)>& builder) {
    agent_id == nullptr ? unsetenv("agentid") : setenv("agentid", agent_id, 1);
    LogCapture::get().take();
    Built built;
    zel::MallocBuffer buffer(static_cast<char*>(calloc(1, 1)));
    const char* const before = buffer.get();
    const uint64_t size = builder(built, buffer);
    EXPECT_EQ(size == 0, buffer.get() == before);
    if (size != 0) built.shown = show({buffer.get(), size});
    built.lines = LogCapture::get().take_up_to(ZEL_LOG_INFO);
    std::erase(built.lines, LogLine{ZEL_LOG_INFO, "get cwpp agentid[me]"});
    return built;
}
inline Built build(ST_BUF_DATA& data, bool repeated = false, uint32_t id = event_id::ioa_alert) {
    return build([&](Built& built, zel::MallocBuffer& buffer) {
        return CGetProtobuf::GetComProtobuf(data, repeated, buffer, built.nProcessCount, built.nRiskLevel, id);
    });
}

// A text that is refused, and the first line about it.
inline std::string bad_text(size_t number) { return "\x01" + std::to_string(number); }
inline LogLine first_line_about(size_t number) { return {ZEL_LOG_INFO, "[ds]str: " + bad_text(number) + " not Ascii"}; }
// Expects that these texts are checked in this order, and no others: of several bad ones the first is named.
inline void expect_order(ST_BUF_DATA& data, const std::vector<std::string*>& texts) {
    for (size_t i = 0; i < texts.size(); ++i) *texts[i] = bad_text(i);
    for (size_t i = 0; i < texts.size(); ++i) {
        const Lines lines = build(data).lines;
        ASSERT_FALSE(lines.empty()) << i;
        EXPECT_EQ(lines.front(), first_line_about(i));
        texts[i]->clear();
    }
    EXPECT_EQ(build(data).lines, Lines{});
}

inline Lines errors(const std::vector<std::string>& texts) {
    Lines lines;
    for (const std::string& text : texts) lines.push_back({ZEL_LOG_ERROR, text});
    return lines;
}
// The lines of a text "\x01" that is refused, and of those that give up because of it.
inline Lines refused(const std::vector<std::string>& chain) {
    Lines lines = errors(chain);
    lines.insert(lines.begin(), {{ZEL_LOG_INFO, "[ds]str: \x01 not Ascii"}, {ZEL_LOG_INFO, "[ds]str: \x01 not utf-8"}});
    return lines;
}

}  // namespace zel_test
