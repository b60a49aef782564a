// Messages as text, by the numbers of the schema.
#pragma once

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <bit>
#include <set>
#include <string>

namespace zel_test {

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

}  // namespace zel_test
