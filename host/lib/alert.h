// Alert documents, made to measure: the one generator for end-to-end tests, benchmarks and long runs. A record that is
// left as it is gives a document that comes through; whoever wants another changes what matters to him.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zelhost {

// 36 characters that end with the number, and the number's last 48 bits back. UINT64_MAX for a text that is no GUID.
std::string guid_text(uint64_t number);
uint64_t guid_number(std::string_view guid);

// One event of a rule: the process that acts, and what it acts upon in `keys`.
struct AlertEvent {
    int type = 7;
    uint64_t pid = 4001;
    std::string image = "/opt/tool";
    std::string keys = R"("FilePath":"/tmp/gone")";  // of the type, and any further ones, as they stand in the document
    // When the event happened, as the document tells it.
    int64_t op_time = 1000;
    std::string command = "tool -d";
    std::string guid = "g-1";
};

// One rule that matched, with the events that it matched.
struct AlertRule {
    std::string id = {};  // empty: made from the alert's number, so that no alert repeats another
    std::string status = "Enable";
    std::vector<AlertEvent> events = {AlertEvent{}};
    std::string keys = R"("internal_id":"i")";
    // The decoder reads it as the score of the rule.
    int score = 5;
};

// The whole document.
struct Alert {
    int64_t number = 1;  // makes its GUID
    int type = 3;
    std::string container = "host";
    std::vector<AlertRule> rules = {AlertRule{}};
    std::vector<AlertEvent> process_set = {};  // of its scenario
    std::string level = "high";
    bool details = true;  // with verify scores, the texts of a container and a scenario

    // The document on one line.
    std::string text() const;
};

}  // namespace zelhost
