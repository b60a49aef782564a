// Joins the messages of many agents into one view of each alert.
#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/lib/stream_reader.h"

namespace zelhost {

// All that is known of an alert: its report, event 769, and its chains, events 770, of one agent and one GUID.
// It lives in AlertViews until it is forgotten.
struct AlertView {
    std::string agent, guid;  // as texts
    std::string source;       // the event that the first message stems from
    // The ids of the messages that made it, in the order in which they came.
    std::vector<std::string> ids;
    std::optional<std::string> report;  // as JSON
    std::vector<std::string> chains;    // likewise
};

// One object on one line, with its end.
std::string view_line(const AlertView& view);

// A message may come twice, and in any order. The views that were changed last are kept, up to a limit of room; of what
// was forgotten nothing is known any more. One thread.
class AlertViews {
public:
    struct Counts {
        uint64_t messages = 0;             // reports and chains
        uint64_t twice = 0;                // that were there already
        uint64_t others = 0;               // of other kinds, or not of this form
        uint64_t joined = 0;               // alerts with report and chain
        uint64_t reports = 0, chains = 0;  // alerts with one of them alone
        std::set<std::string> agents;
    };

    // The limit counts the texts of all views and a fixed room for each. In bytes.
    explicit AlertViews(uint64_t limit_bytes) : limit_bytes_(limit_bytes) {}

    // The view that a message has changed; null when it changes none. Valid until the next call.
    const AlertView* add(const StreamMessage& message);
    // The view that was changed longest ago, if it is too much for the limit, or if there is one at all and `any` is
    // wanted; it is forgotten.
    std::optional<AlertView> forget(bool any);

    // With the views that are kept and those that were forgotten.
    Counts counts() const;

private:
    void count(const AlertView& view, Counts& counts) const;

    const uint64_t limit_bytes_;
    // What the views take at the moment, by the same count.
    uint64_t bytes_ = 0;
    std::list<AlertView> views_;  // the one changed last is the last
    // The key is the agent and the GUID, or the id of a message that has no GUID.
    std::unordered_map<std::string, std::list<AlertView>::iterator> by_alert_;
    Counts counts_;
};

}  // namespace zelhost
