// Documents that an attacker would make, in sizes that double, on the road from text to message: decode, ask the repeat
// filter, build. Time and memory must not grow faster than the document.
//
//   hostile_documents [PERCENT]    of the full sizes; 100 by default
//
// Prints a line for each kind: what each size costs, and by how much the time grows. The time is that of the
// processor, the least of several runs. Memory is what the road needs beside the text. Exit code 1 when the exponent of
// a growth is too high, 2 for a wrong argument.
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <string>
#include <string_view>

#include "bench/documents.h"
#include "decode/jsonparse.h"
#include "fuzz/fuzz_alert.h"
#include "host/lib/alert.h"
#include "suppress/alert_filter.h"
#include "trace/getprotobuf.h"

namespace {

using zelhost::Alert;
using zelhost::AlertEvent;
using zelhost::AlertRule;

// Smaller documents fit the caches in part, and a step from one cache to the next looks like growth.
constexpr double most_exponent(unsigned percent) { return percent == 100 ? 1.25 : 1.5; }
constexpr std::array kShares = {0.25, 0.5, 1.0};  // of the full size
constexpr int kRuns = 4;
constexpr double kShortestRun = 0.05;  // seconds; a document that takes less is taken several times

// --- the documents ---

std::string with_rule_keys(const std::string& keys) {
    return Alert{.rules = {{.keys = R"("internal_id":"i",)" + keys}}, .details = false}.text();
}

std::string list_of(size_t count, std::string (*item)(size_t number)) {
    std::string text;
    for (size_t number = 0; number < count; ++number) {
        if (number > 0) text += ',';
        text += item(number);
    }
    return text;
}

std::string many_events(size_t count) { return make_document(static_cast<int>(count)); }

std::string many_keys(size_t count) {
    return with_rule_keys(list_of(count, [](size_t number) { return "\"k" + std::to_string(number) + "\":1"; }));
}

// The decoder's hash looks at the end of a name and at its length.
static_assert(zel::Key::hash_of("00000000same") == zel::Key::hash_of("12345678same"));
std::string key_of_one_hash(size_t number) {
    const std::string digits = std::to_string(number);
    return '"' + std::string(8 - digits.size(), '0') + digits + "same\":1";
}

std::string keys_of_one_hash(size_t count) { return with_rule_keys(list_of(count, key_of_one_hash)); }

std::string many_tags(size_t count) {
    return with_rule_keys(R"("tags":[)" +
                          list_of(count, [](size_t number) { return "\"t" + std::to_string(number) + '"'; }) + "]");
}

std::string many_rules(size_t count) {
    Alert alert{.rules = {}, .details = false};
    for (size_t number = 0; number < count; ++number)
        alert.rules.push_back({.id = "R-" + std::to_string(number), .events = {{.image = std::to_string(number)}}});
    return alert.text();
}

std::string rules_of_one_id(size_t count) {
    return Alert{.rules = std::vector<AlertRule>(count, {.id = "R"}), .details = false}.text();
}

std::string images_of_one_rule(size_t count) {
    Alert alert{.rules = {{.events = {}}}, .details = false};
    for (size_t number = 0; number < count; ++number)
        alert.rules[0].events.push_back({.image = "/i" + std::to_string(number)});
    return alert.text();
}

// As deep as the parser goes, less the levels that the document has itself.
std::string deep_brackets(size_t depth) {
    return with_rule_keys(R"("x":)" + std::string(depth, '[') + std::string(depth, ']'));
}

std::string long_text(size_t size) {
    return Alert{.rules = {{.events = {{.command = std::string(size, 'x')}}}}, .details = false}.text();
}

std::string escaped_text(size_t size) {
    std::string text;
    for (size_t i = 0; i < size / 6; ++i) text += "\\u00e9";
    return Alert{.rules = {{.events = {{.command = text}}}}, .details = false}.text();
}

struct Kind {
    const char* name;
    std::string (*document)(size_t size);
    size_t full;
};
constexpr Kind kKinds[] = {
    {"events, 100 MB of text", many_events, 172'000},
    {"keys in one object", many_keys, 1'000'000},
    {"keys of one hash", keys_of_one_hash, 1'000'000},
    {"tags", many_tags, 1'000'000},
    {"rules", many_rules, 100'000},
    {"rules of one id", rules_of_one_id, 100'000},
    {"images in one rule", images_of_one_rule, 100'000},
    {"brackets, deep", deep_brackets, 990},
    {"text, bytes", long_text, 50'000'000},
    {"text of escapes, bytes", escaped_text, 50'000'000},
};

// --- the measuring ---

double processor_seconds() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

// In MiB, from /proc/self/status.
double memory(std::string_view name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(name)) return std::stod(line.substr(name.size() + 1)) / 1024;
    return 0;
}

// The kernel's mark of the most memory goes down to what is in use now.
void forget_peak() { std::ofstream("/proc/self/clear_refs") << '5'; }

bool take_road(ST_QUEQE_NODE& node) {
    ST_BUF_DATA data;
    ResHdlAlert::AlertFilter filter(0);
    zel::MallocBuffer buffer;
    int events = 0;
    int level = 0;
    const bool built = CEventHandle::GetJsonInfo(&node, data) && !filter.CheckRepeat(data, 1) &&
                       CGetProtobuf::GetComProtobuf(data, false, buffer, events, level, event_id::ioa_alert) > 0;
    FreeBufData(data);
    return built;
}

struct Cost {
    double seconds;  // negative when the document did not become a message
    double mib;
    double text_mb;
};

Cost measure(const Kind& kind, size_t size) {
    const NodePtr node = make_node(kind.document(size));
    // Memory comes back without new pages in all sizes; otherwise the largest blocks alone would pay for them each
    // time.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    malloc_trim(0);
    Cost least{1e9, 0, static_cast<double>(node->uSize) / 1e6};
    for (int run = 0; run < kRuns; ++run) {
        const double before = memory("VmRSS");
        forget_peak();
        const double started = processor_seconds();
        double taken = 0;
        int times = 0;
        do {
            if (!take_road(*node)) return {-1, 0, 0};
            ++times;
            taken = processor_seconds() - started;
        } while (taken < kShortestRun);
        least.seconds = std::min(least.seconds, taken / times);
        if (run == 0) least.mib = memory("VmHWM") - before;
    }
    return least;
}

// Each in a process of its own, so that none finds memory that another has left.
Cost measure_apart(const Kind& kind, size_t size) {
    int ends[2];
    if (pipe(ends) != 0) return {-1, 0, 0};
    const pid_t child = fork();
    if (child == 0) {
        const Cost cost = measure(kind, size);
        _exit(write(ends[1], &cost, sizeof cost) == sizeof cost ? 0 : 1);
    }
    close(ends[1]);
    Cost cost{-1, 0, 0};
    if (child < 0 || read(ends[0], &cost, sizeof cost) != sizeof cost) cost.seconds = -1;
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return cost;
}

// False when the kind grows too fast or is refused.
bool show(const Kind& kind, unsigned percent) {
    std::array<Cost, kShares.size()> costs{};
    printf("%-24s", kind.name);
    for (size_t i = 0; i < kShares.size(); ++i) {
        const auto size = static_cast<size_t>(static_cast<double>(kind.full) * percent / 100 * kShares[i]);
        costs[i] = measure_apart(kind, size);
        if (costs[i].seconds < 0) {
            printf("  %zu: NO MESSAGE\n", size);
            return false;
        }
        printf(" %9zu: %8.5f s %6.1f MiB", size, costs[i].seconds, costs[i].mib);
        fflush(stdout);
    }
    const double exponent =
        std::log(costs.back().seconds / costs.front().seconds) / std::log(kShares.back() / kShares.front());
    printf("   %5.1f MB of text, exponent %.2f%s\n", costs.back().text_mb, exponent,
           exponent > most_exponent(percent) ? "  TOO FAST" : "");
    return exponent <= most_exponent(percent);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view text = argc > 1 ? argv[1] : "100";
    unsigned percent = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), percent);
    if (argc > 2 || error != std::errc() || end != text.data() + text.size() || percent < 1 || percent > 100) {
        fprintf(stderr, "hostile_documents: 1 to 100 per cent (usage: hostile_documents [PERCENT])\n");
        return 2;
    }
    setenv("agentid", "0", 1);
    bool linear = true;
    for (const Kind& kind : kKinds) linear = show(kind, percent) && linear;
    return linear ? 0 : 1;
}
