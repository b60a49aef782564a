// A sequence of DNS hits on their road through the hot cache, held against a model of the cache: a hit is a repeat when
// its key is known, and each repeat is in the batch that is sent when its key leaves the cache.
#include <algorithm>
#include <array>
#include <chrono>
#include <deque>
#include <string>
#include <string_view>

#include "agent_file.h"
#include "bus_event.h"
#include "common/common.h"
#include "fuzz.h"
#include "pipeline.h"
#include "pipeline/fifoqueue_publish.h"
#include "platform/native_payloads.h"
#include "plugin/zelreshdl_dns.h"
#include "retrace.pb.h"
#include "suppress/fifoqueue.h"

namespace {

using namespace std::chrono_literals;

constexpr size_t kCacheSize = 10;
constexpr size_t kShed = 3;  // die_num percent of it
constexpr uint64_t kCheckMs = 60'000;
constexpr uint64_t kDieMs = 5 * 60'000;
constexpr std::string_view kSettings = "[cache]\ncache_size=10\ndie_check_time=1\ndie_time_linux=5\ndie_num=30\n";

// A hit as an engine publishes it, with texts from the input.
class Hit {
public:
    explicit Hit(fuzz::Bytes& input) {
        record_.uKind = input.below(5);
        for (uint64_t& number : record_.ullHead) number = input.byte();
        record_.uHead[0] = input.number<uint32_t>();
        for (const char*& each : record_.pszText) each = text(input);
        two_.uPid = input.below(4);
        two_.llCreateTime = input.below(4);
        for (const char*& each : two_.pszProcess) each = text(input);
        two_.pszDomain = text(input);
        two_.pszDnsResults = text(input);
        two_.uDnsStatus = input.number<uint32_t>();
        one_.uPid = two_.uPid;
        one_.llCreateTime = two_.llCreateTime;
        std::ranges::copy(two_.pszProcess, one_.pszProcess);
        for (size_t i = 0; i < std::size(one_.pszTail); ++i) one_.pszTail[i] = three_.pszTail[i] = text(input);
        // Behind a kind without a layout nothing may be read.
        const std::array<const void*, 5> variants{this, &one_, &two_, &three_, this};
        record_.pVariant = input.below(8) == 0 ? nullptr : variants[record_.uKind];
        name_ = text(input);
    }

    const ST_DNS_NATIVE& record() const { return record_; }
    const char* query_name() const { return name_; }

private:
    // Null, one of a few, or any bytes; most of the time one of a few, so that hits repeat each other.
    const char* text(fuzz::Bytes& input) {
        static constexpr std::array kFew{"", "a.example", "A.EXAMPLE", "/usr/bin/curl"};
        const uint8_t choice = input.byte();
        if (choice == 0xff) return nullptr;
        if (choice < 0xf0) return kFew[choice % kFew.size()];
        // Longer than every room, now and then.
        std::string& made = texts_.emplace_back(input.text());
        if (choice == 0xf0) made.resize(2000, 'x');
        return made.c_str();
    }

    std::deque<std::string> texts_;
    ST_DNS_NATIVE record_{};
    ST_DNS_VARIANT_1 one_{};
    ST_DNS_VARIANT_2 two_{};
    ST_DNS_VARIANT_3 three_{};
    const char* name_ = nullptr;
};

// What the cache must hold, the newest first.
class Model {
public:
    struct Entry {
        uint64_t key;
        uint64_t time;
        int repeats = 0;
    };

    // True for a repeat.
    bool hit(uint64_t key) {
        const auto found = std::ranges::find(entries_, key, &Entry::key);
        if (found == entries_.end()) return false;
        ++found->repeats;
        return true;
    }
    void insert(uint64_t key) {
        entries_.push_front({key, GetTickMs()});
        if (entries_.size() == kCacheSize) take(kShed);
    }
    void look() {
        if (GetTickMs() - last_look_ < kCheckMs) return;
        last_look_ = GetTickMs();
        take(static_cast<size_t>(
            std::ranges::count_if(entries_, [](const Entry& e) { return GetTickMs() - e.time >= kDieMs; })));
    }
    // The batch that must have been sent since the last call: how many keys with repeats, and how many repeats.
    struct Batch {
        bool sent = false;
        int keys = 0;
        int repeats = 0;
    };
    Batch batch() { return std::exchange(batch_, {}); }

private:
    void take(size_t count) {
        for (; count > 0; --count) {
            batch_.sent = true;
            batch_.keys += entries_.back().repeats > 0 ? 1 : 0;
            batch_.repeats += entries_.back().repeats;
            entries_.pop_back();
        }
    }

    std::deque<Entry> entries_;
    uint64_t last_look_ = GetTickMs();
    Batch batch_;
};

// A message whose texts are no UTF-8 tells nothing.
void check_sent(const std::vector<fuzz::Sent>& sent, const Model::Batch& expected) {
    const auto is_batch = [](const fuzz::Sent& each) { return each.id == event_id::finished_trace; };
    FUZZ_CHECK(std::ranges::count_if(sent, is_batch) == (expected.sent ? 1 : 0));
    FUZZ_CHECK(sent.size() <= (expected.sent ? 2 : 1));
    for (const fuzz::Sent& each : sent) {
        FUZZ_CHECK(each.source == event_id::ioc);
        vorn_retrace::vorn_trace_info message;
        if (!message.ParseFromString(each.bytes)) continue;
        if (!is_batch(each)) {
            FUZZ_CHECK(each.id == event_id::first_report && message.threat().alert_guid() == each.guid);
            continue;
        }
        int repeats = 0;
        for (const auto& alert : message.dup_alerts()) repeats += static_cast<int>(alert.dup_count());
        FUZZ_CHECK(message.dup_alerts_size() == expected.keys && repeats == expected.repeats);
    }
}

// The flat copy holds as much of a text as its room takes, with a terminator.
void check_copy(const ST_IOC_MSG& copy, const Hit& hit) {
    const ST_DNS_NATIVE& record = hit.record();
    const std::string_view text = record.pszText[0] != nullptr && record.pVariant != nullptr ? record.pszText[0] : "";
    FUZZ_CHECK(copy.szRepository == text.substr(0, sizeof copy.szRepository - 1));
    FUZZ_CHECK(copy.strQueryName == (hit.query_name() != nullptr ? hit.query_name() : ""));
    FUZZ_CHECK(copy.alert_time() == record.ullHead[12]);
}

void play(fuzz::Bytes& input, Model& model) {
    const Hit hit(input);
    fuzz::BusEvent event(event_id::ioc, &hit.record(), hit.query_name());
    std::unique_ptr<ST_IOC_MSG> copy = copy_dns_event(event);
    FUZZ_CHECK(copy != nullptr && event.references() == 1);
    check_copy(*copy, hit);
    const uint64_t key = copy->ullCacheKey;
    const bool repeated = g_hotCache.CheckAlertHot(*copy, event_id::ioc);
    FUZZ_CHECK(repeated == model.hit(key));
    if (repeated) return;
    const fuzz::Outcome outcome = fuzz::run_event(event_id::ioc, {nullptr, std::move(copy)});
    FUZZ_CHECK(outcome.taken && !outcome.given_up);
    model.insert(key);
    check_sent(outcome.sent, model.batch());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    [[maybe_unused]] static const bool settings_are_read = [] {
        const fuzz::AgentFile file(kSettings);
        g_hotCache.LoadCacheSettings();
        return true;
    }();
    // From an earlier input nothing is left, and the next look is due in a minute.
    g_hotCache.forget();
    fuzz::advance(2min);
    FUZZ_CHECK(g_hotCache.CheckDieOut(GetTickMs()).empty());

    Model model;
    fuzz::Bytes input(data, size);
    while (!input.empty()) {
        if (input.below(4) == 0) {
            fuzz::advance(std::chrono::seconds(input.byte()));
            report_repeats(g_hotCache.CheckDieOut(GetTickMs()));
            model.look();
            check_sent(fuzz::take_sent(), model.batch());
        } else {
            play(input, model);
        }
    }
    return 0;
}
