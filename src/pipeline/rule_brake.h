// The brake on busy rules. It counts the matches of each rule over the last hour, so that a rule that matches all the
// time does not have the same processes scanned all the time. Alarm worker only, so there is no lock. The caller gives
// the time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <utility>

class RuleBrake {
public:
    // Counts one match at `now`, in monotonic milliseconds. When memory runs out it throws std::bad_alloc and counts
    // nothing.
    void CountRuleMatch(const std::string& strRuleId, uint64_t now);
    // Forgets matches that are more than an hour old, and the oldest ones while there are more than `most`. A match of
    // exactly an hour ago still counts.
    void expire(uint64_t now, uint64_t most);
    // Whether the rule has matched at most `limit` times. A rule without a count has matched 0 times.
    bool is_within(const std::string& strRuleId, uint64_t limit) const;
    // Forgets all matches.
    void clear();

private:
    using Counts = std::map<std::string, uint32_t>;

    Counts m_mapIoaMatch;  // no count is 0
    // Each element leads to its rule's count. An iterator of a map stays valid while other rules come and go.
    std::list<std::pair<uint64_t, Counts::iterator>> m_listIoaMatch;  // oldest first
};
