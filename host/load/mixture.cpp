#include "host/load/mixture.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <numeric>

#include "host/lib/alert.h"
#include "host/lib/failure.h"
#include "platform/event_ids.h"

namespace zelhost {
namespace {

// One field of a serialised message: its number, which must be below 16, and its bytes. Written by hand, because a long
// run must also send what a protobuf library would not.
std::string field(uint32_t number, std::string_view bytes) {
    // The 2 says that a length and so many bytes follow.
    std::string text(1, static_cast<char>(number << 3 | 2));
    uint64_t size = bytes.size();
    // The length stands in groups of seven bits, the lowest first. The highest bit of a byte says
    // that more follow.
    for (; size >= 0x80; size >>= 7) text += static_cast<char>((size & 0x7f) | 0x80);
    text += static_cast<char>(size);
    return text.append(bytes);
}

// In vorn_trace_info and threat_alert.
// The numbers of the fields in the schema.
constexpr uint32_t kAgentId = 1, kTaskId = 2, kThreat = 8, kAlertGuid = 2;

// The first is no level that the plug-in knows.
constexpr const char* kLevels[] = {"none", "Verbose", "Low", "Medium", "High", "Critical"};

}  // namespace

// The number tells the two mixtures of one seed apart.
Mixture::Mixture(EventSink& sink, uint32_t seed, uint32_t number, const Mix& mix, int events)
    : sink_(sink),
      next_(uint64_t{number} << 32),
      mix_(mix),
      shares_(std::accumulate(mix.begin(), mix.end(), 0u)),
      events_(events) {
    // Seed and number together make the random numbers, so that two mixtures of one load differ.
    std::seed_seq both{seed, number};
    random_.seed(both);
}

void Mixture::send(uint32_t id, const std::string& data, uint64_t number) {
    sink_.take(id, data.data(), data.size(), number);
}

void Mixture::send_alert(AlertForm form, uint32_t id) {
    // The number makes the GUID, so no two alerts have the same one.
    // Every document gets a number, a repeated alert as well: what makes it a repeat are its rule
    // and images.
    form.number = next_++;
    form.level = kLevels[below(random_, std::size(kLevels))];
    // A load may fix the number of events of each rule for all kinds.
    if (events_ > 0) form.events = events_;
    send(id, alert_text(form), form.number);
}

void Mixture::fresh_alert() {
    const int rules = 1 + static_cast<int>(below(random_, 3));
    send_alert({.rules = rules, .events = 1 + static_cast<int>(below(random_, 3))}, event_id::ioa_alert);
}

void Mixture::huge_alert() { send_alert({.events = 1000}, event_id::ioa_alert); }

// There are eight rules in all, so most of these alerts come within a minute of one like them.
void Mixture::repeated_alert() {
    send_alert({.rule_id = fmt::format("R-again-{}", below(random_, 8))}, event_id::ioa_alert);
}

void Mixture::container_alert() { send_alert({.container = "0a1b2c3d4e5f"}, event_id::ioa_alert); }

void Mixture::scenario_alert() { send_alert({.type = 2, .rules = 2, .events = 2}, event_id::ioa_alert); }

// The plug-in drops these while many traces are put off. The ids mix small letters and capitals, because case must not
// count.
void Mixture::busy_rule_alert() {
    send_alert({.type = 2, .rule_id = fmt::format("xdr-IOA-{}", below(random_, 1000)), .events = 2},
               event_id::ioa_alert);
}

void Mixture::trigger_alert() { send_alert({.status = "Trigger"}, event_id::ioa_alert); }

// Levels and sizes follow from the number and do not keep step, so that each level has alerts of each size.
void Mixture::graded_alert() {
    const uint64_t number = next_++;
    const int drawn = 1 + static_cast<int>(number / std::size(kLevels) % 20);
    const int events = events_ > 0 ? events_ : drawn;
    send(event_id::ioa_alert,
         alert_text({.number = number, .level = kLevels[number % std::size(kLevels)], .events = events}), number);
}

void Mixture::memory_alert() { send_alert({.events = 2}, event_id::memory_trojan); }

// Cut short, with a level in capitals, without a GUID, with a text that no message may carry, without a version.
void Mixture::bad_document() {
    std::string text = alert_text({.number = next_++});
    switch (below(random_, 5)) {
        case 0: text.resize(below(random_, static_cast<uint32_t>(text.size()))); break;
        case 1: text.replace(text.find("risk_level"), 4, "RISK"); break;
        case 2: text.replace(text.find("\"Guid\""), 6, "\"guid-\""); break;
        // The escape stands for a control character, which the decoder takes and the builder
        // refuses.
        case 3: text.replace(text.find("tool -d"), 1, "\\u0001"); break;  // no message may carry it
        default: text.replace(text.find("\"version\""), 4, "\"V");
    }
    send(below(random_, 4) == 0 ? event_id::memory_trojan : event_id::ioa_alert, text);
}

// The plug-in does not read the text, so one that is no text does as well.
// The number is not passed on: the damage may lie in the GUID, and then no report with this number
// comes.
void Mixture::finding() {
    const char* const text = below(random_, 5) == 0 ? "\x01 not a text" : R"({"src_ip":"198.51.100.7","count":614})";
    send(event_id::port_scan + below(random_, 3), text);
}

// The message is cut at any byte; the plug-in sends what it can read of it.
void Mixture::detection() {
    // The shortest cut leaves one byte, since an event without data is a kind of its own.
    const std::string message = field(kAgentId, "elsewhere");
    send(event_id::credible_event + below(random_, 2),
         message.substr(0, 1 + below(random_, static_cast<uint32_t>(message.size()))));
}

void Mixture::kov() { send(event_id::kov, field(kThreat, field(kAlertGuid, guid_text(next_++)))); }

void Mixture::expand() { send(event_id::trc_ex, field(kTaskId, "task-4711")); }

void Mixture::ignored() { send(event_id::ignored, "heartbeat"); }

// The first byte sees to it that the rest is neither a message nor a document.
void Mixture::garbage() {
    constexpr uint32_t kIds[] = {event_id::unprocessed,   event_id::ioa_alert,      event_id::unassigned_1537,
                                 event_id::memory_trojan, event_id::credible_event, event_id::event_detect,
                                 event_id::kov,           event_id::trc_ex,         4242};
    // The byte 7 is no valid tag of a message and no beginning of a JSON text.
    std::string bytes(1 + below(random_, 300), '\x07');
    for (size_t i = 1; i < bytes.size(); ++i) bytes[i] = static_cast<char>(below(random_, 256));
    send(kIds[below(random_, std::size(kIds))], bytes);
}

// A null pointer, with a size of 0 or of 100.
void Mixture::no_data() {
    constexpr uint32_t kIds[] = {event_id::ioa_alert,    event_id::memory_trojan, event_id::port_scan,
                                 event_id::event_detect, event_id::kov,           event_id::trc_ex};
    sink_.take(kIds[below(random_, std::size(kIds))], nullptr, below(random_, 2) == 0 ? 0 : 100, EventSink::kNoNumber);
}

void Mixture::fresh_hit() { hit(next_++, below(random_, 5)); }

void Mixture::repeated_hit() { hit(below(random_, 20), 2); }

// Kinds 1, 2 and 3 have a variant record of their own; the others have none.
// The host name is made from the number. The same number gives the same name, and so a hit that the
// hot cache knows.
void Mixture::hit(uint64_t number, uint32_t kind) {
    // The texts of the record live on this stack. The sink copies what it needs during the call.
    const std::string domain = fmt::format("host-{}.bad.example", number);
    const ST_DNS_VARIANT_1 one{
        static_cast<uint32_t>(number), 900, {"guid", "/usr/bin/curl", "", "", "curl"}, {"a"}, {}, {}};
    const ST_DNS_VARIANT_2 two{static_cast<uint32_t>(number),
                               900,
                               {"01234567-89ab-cdef-0123-456789abcdef", "/usr/bin/curl", "m", "s", "curl bad", "root"},
                               domain.c_str(),
                               3,
                               "192.0.2.1",
                               0};
    const ST_DNS_VARIANT_3 three{{"a", "b", "c"}, {1, 2}, 3};
    const void* const variants[] = {nullptr, &one, &two, &three, nullptr};
    ST_DNS_NATIVE record{};
    record.uKind = kind;
    // The time of the hit is in milliseconds.
    record.ullHead[12] = 1715000000000 + below(random_, 100000);
    record.pszText[0] = "repository";
    record.pVariant = variants[kind];
    sink_.take(record, domain.c_str());
}

// Each kind with its share. The kinds of which something stays are rare in the usual mix, so that memory does not grow
// with the length of a run. Those without a share there are for whoever asks for them.
const Mixture::Kind Mixture::kKinds[] = {
    {"alert", "alerts with 1 to 3 rules, each of 1 to 3 events", 30, &Mixture::fresh_alert},
    {"huge", "alerts with 1000 events", 0, &Mixture::huge_alert},
    {"repeat", "alerts like an earlier one: there are 8 of them", 12, &Mixture::repeated_alert},
    {"container", "alerts from a container, which are not traced", 6, &Mixture::container_alert},
    {"scenario", "alerts whose processes are to be checked", 8, &Mixture::scenario_alert},
    {"busy", "alerts that are filtered while many traces wait", 6, &Mixture::busy_rule_alert},
    {"trigger", "alerts whose rules are all triggers", 3, &Mixture::trigger_alert},
    {"graded", "alerts of all levels and of 1 to 20 events, in turn", 0, &Mixture::graded_alert},
    {"memory", "memory Trojans", 10, &Mixture::memory_alert},
    {"bad", "alert documents that cannot be used", 4, &Mixture::bad_document, true},
    {"finding", "port scans, brute force and abnormal logins", 6, &Mixture::finding},
    {"detection", "detection results, cut off at any byte", 6, &Mixture::detection},
    {"kov", "KOV alerts", 6, &Mixture::kov},
    {"expand", "requests to expand a chain", 3, &Mixture::expand},
    {"ignored", "events that are taken and ignored", 1, &Mixture::ignored, true},
    {"garbage", "random bytes under any event id", 3, &Mixture::garbage, true},
    {"no-data", "events without data", 1, &Mixture::no_data},
    {"dns", "DNS hits", 10, &Mixture::fresh_hit},
    {"dns-repeat", "DNS hits like an earlier one: there are 20 of them", 10, &Mixture::repeated_hit},
};

std::span<const Mixture::Kind> Mixture::kinds() { return kKinds; }

// A kind gets as many of the numbers as its share says.
void Mixture::make_one() {
    // The number that is drawn falls into one kind's part of the sum. The last kind gets what all
    // others leave.
    uint32_t at = below(random_, shares_);
    const Kind* kind = std::begin(kKinds);
    for (auto share = mix_.begin(); share != mix_.end() - 1 && at >= *share; ++share, ++kind) at -= *share;
    (this->*kind->make)();
}

Mix usual_mix() {
    Mix mix;
    for (const Mixture::Kind& kind : Mixture::kinds()) mix.push_back(kind.share);
    return mix;
}

Mix mix_that_leaves_nothing() {
    Mix mix;
    for (const Mixture::Kind& kind : Mixture::kinds()) mix.push_back(kind.stays ? 0 : kind.share);
    return mix;
}

namespace {

// One kind and its share go to their place in the mix.
void parse_part(std::string_view part, Mix& mix) {
    const size_t equals = part.find('=');
    if (equals == std::string_view::npos) throw Failure("\"{}\" is not of the form KIND=SHARE", part);
    const std::string_view name = part.substr(0, equals);
    const std::string_view digits = part.substr(equals + 1);
    const auto found =
        std::ranges::find(Mixture::kinds(), name, [](const auto& kind) { return std::string_view(kind.name); });
    if (found == Mixture::kinds().end()) throw Failure("\"{}\" is no kind of event", name);
    uint32_t share = 0;
    const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), share);
    constexpr uint32_t kMost = 1'000'000;  // so that the sum of all shares fits
    if (end.ec != std::errc() || end.ptr != digits.data() + digits.size() || share > kMost)
        throw Failure("the share of {} is a whole number from 0 to {}, not \"{}\"", name, kMost, digits);
    mix[static_cast<size_t>(found - Mixture::kinds().begin())] = share;
}

}  // namespace

Mix parse_mix(std::string_view text) {
    // A kind that the text does not name gets no share at all.
    Mix mix(Mixture::kinds().size(), 0);
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(',', begin), text.size());
        parse_part(text.substr(begin, end - begin), mix);
        begin = end + 1;
    }
    if (std::ranges::count(mix, 0u) == std::ssize(mix)) throw Failure("at least one share must be above 0");
    return mix;
}

}  // namespace zelhost
