// Any bytes as the script of `zelhost run`: every line is found, and each is either refused with a reason or taken
// apart into members that stand in the line and say the same when they are read alone. A payload comes out as it
// stands.
#include <algorithm>
#include <string>
#include <string_view>

#include "agent_file.h"
#include "fuzz.h"
#include "host/lib/dns_event.h"
#include "host/lib/failure.h"
#include "host/lib/json_text.h"
#include "host/lib/line_reader.h"
#include "host/lib/message.h"
#include "host/lib/payload.h"

namespace {

using namespace zelhost;

// A value that stands in a line can be read alone: a refusal of it ends the process.
void check_member(const JsonText::Member& member, std::string_view line) noexcept {
    FUZZ_CHECK(member.raw.data() >= line.data() && member.raw.end() <= line.end() && !member.raw.empty());
    // A list of this one value.
    const std::string alone = "[" + std::string(member.raw) + "]";
    const JsonText list(alone, JsonText::Type::array);
    FUZZ_CHECK(list.members().size() == 1);
    const JsonText::Member& again = list.members().front();
    FUZZ_CHECK(again.type == member.type && again.raw == member.raw && again.text == member.text);
    FUZZ_CHECK(again.whole == member.whole);
}

// The record's texts are read to their ends.
void check_dns(const JsonText::Member& dns) {
    const DnsEvent event(dns.raw);
    size_t length = event.query_name() != nullptr ? strlen(event.query_name()) : 0;
    for (const char* text : event.native().pszText) length += text != nullptr ? strlen(text) : 0;
    FUZZ_CHECK(length <= dns.raw.size());
    FUZZ_CHECK(event.native().pVariant == nullptr || (event.native().uKind >= 1 && event.native().uKind <= 3));
}

// A message has one JSON form, and what is shown can be read.
void check_message(const std::string& bytes) noexcept {
    const auto shown = message_to_json(bytes.data(), bytes.size());
    FUZZ_CHECK(shown.has_value());
    const std::string again = message_from_json(*shown);
    FUZZ_CHECK(message_to_json(again.data(), again.size()) == shown);
}

void check_payload(const JsonText& line) {
    const Payload payload = read_payload(line);
    FUZZ_CHECK(payload.has_value() == (line.find("data") == nullptr));
    for (const char* key : {"alert", "json"})
        if (const auto* member = line.find(key); member != nullptr) FUZZ_CHECK(*payload == member->raw);
    if (const auto* member = line.find("text"); member != nullptr) FUZZ_CHECK(*payload == member->text);
    if (const auto* member = line.find("hex"); member != nullptr)
        FUZZ_CHECK(payload->size() <= member->text.size() / 2);
    if (line.find("message") != nullptr && !payload->empty()) check_message(*payload);
}

void play(std::string_view text) {
    try {
        const JsonText line(text);
        for (const JsonText::Member& member : line.members()) check_member(member, text);
        if (const auto* dns = line.find("dns"); dns != nullptr)
            check_dns(*dns);
        else
            check_payload(line);
    } catch (const Failure& e) {
        FUZZ_CHECK(*e.what() != '\0');
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const StopSignal& stop = *new StopSignal;
    const std::string_view script(reinterpret_cast<const char*>(data), size);
    const fuzz::AgentFile file(script);
    LineReader reader(file.path(), LineReader::Mode::to_the_end, stop);
    std::string read;
    for (std::string_view line; reader.next(line);) {
        FUZZ_CHECK(line.find('\n') == std::string_view::npos);
        read.append(line).push_back('\n');
        play(line);
    }
    // A last line without an end counts.
    const bool ended = script.empty() || script.ends_with('\n');
    FUZZ_CHECK(read == std::string(script) + (ended ? "" : "\n"));
    FUZZ_CHECK(reader.number() == static_cast<uint64_t>(std::ranges::count(read, '\n')));
    return 0;
}
