// The brake on busy rules: counts the matches of each rule over the last hour. Alarm worker only, so there is no lock;
// the clock comes from outside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <utility>

class RuleBrake {
public:
    // Counts one match at `now`, monotonic milliseconds. When memory runs out it throws std::bad_alloc and counts nothing.
    void CountRuleMatch(const std::string& strRuleId, uint64_t now);
    // Lets go of matches of more than an hour ago, and of the oldest while there are more than `most`.
    void expire(uint64_t now, uint64_t most);
    // Whether the rule has matched at most `limit` times.
    bool is_within(const std::string& strRuleId, uint64_t limit) const;
    // Forgets all.
    void clear();

private:
    using Counts = std::map<std::string, uint32_t>;

    Counts m_mapIoaMatch;                                         // no count is 0
    std::list<std::pair<uint64_t, Counts::iterator>> m_listIoaMatch;  // oldest first
};
