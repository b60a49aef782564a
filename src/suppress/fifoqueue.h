// The hot cache: remembers DNS hits of the recent past, so that a repeat only raises a tally. The tallies go out in one
// batch when entries leave by age or by pressure.
//
// Threads: CheckAlertHot on the bus thread, all else on the alarm worker. One mutex guards the queue and the entries;
// the index is changed by the alarm worker alone, under the mutex.
#pragma once

#include <cstdint>
#include <list>
#include <unordered_map>

#include "common/mutex.h"
#include "common/queue_nodes.h"

namespace ResHdlCache {

// What is remembered of one hit. key and alert_id are neighbours: key has no terminator of its own, and its readers run
// on into alert_id, which is always terminated.
struct ST_CACHE_NODE {
    uint32_t count = 0;  // repeats; the first sighting is none
    uint64_t hash = 0;
    uint64_t begin = 0;  // lowest and highest alert time among the repeats
    uint64_t end = 0;
    char key[20] = {};
    char alert_id[kGuidSize] = {};
    uint64_t time = 0;  // monotonic milliseconds at insertion
};
static_assert(offsetof(ST_CACHE_NODE, alert_id) == offsetof(ST_CACHE_NODE, key) + sizeof ST_CACHE_NODE::key);

// All 0 until they are read.
struct CacheSettings {
    int32_t cache_size = 0;      // entries; 0 switches the cache off
    int32_t die_check_time = 0;  // minutes
    int32_t die_time = 0;        // minutes
    int32_t die_num = 0;         // percent of cache_size
};

struct CacheSetting {
    const char* key;
    int32_t CacheSettings::* value;
    unsigned int default_value;
    unsigned int lowest;
    unsigned int highest;
};
inline constexpr CacheSetting kCacheSettings[] = {
    {"cache_size", &CacheSettings::cache_size, 1000, 10, 5000},
    {"die_check_time", &CacheSettings::die_check_time, 60, 1, 1440},
    {"die_time_linux", &CacheSettings::die_time, 60, 1, 1440},
    {"die_num", &CacheSettings::die_num, 30, 10, 100},
};

class CFifoQueue {
public:
    CFifoQueue();
    // Entries that are left go unreported.
    virtual ~CFifoQueue() = default;

    // Reads section "cache" of the plug-in's settings; before events arrive.
    void LoadCacheSettings();
    // True if the hit of event 1281 is a repeat, which is tallied then.
    bool CheckAlertHot(const ST_IOC_MSG& stMsg, EVENT_ID uEventId) EXCLUDES(mutex_);
    // Remembers the node's hit; sheds the oldest entries of a full queue and reports them.
    void InsertAlert(const ST_QUEQE_NODE& stNode) EXCLUDES(mutex_);
    // Reports entries that have grown too old, once in each check period.
    void CheckDieOut() EXCLUDES(mutex_);

    // 0 for a null text. Domain and path count without regard to case.
    static uint64_t CalculateHash(const char* pszDomain, int64_t llProcessTime, const char* pszPath, uint64_t ullPid);

private:
    using Queue = std::list<ST_CACHE_NODE>;  // newest first

    bool hit(uint64_t hash, uint64_t alert_time) EXCLUDES(mutex_);
    bool known(uint64_t hash) const;
    Queue insert_and_shed(ST_CACHE_NODE entry) EXCLUDES(mutex_);
    Queue die_out_by_age() EXCLUDES(mutex_);
    void forget(const ST_CACHE_NODE& entry) EXCLUDES(mutex_);
    void report(Queue entries) EXCLUDES(mutex_);

    std::unordered_map<uint64_t, Queue::iterator> index_ GUARDED_BY(mutex_);
    Queue queue_ GUARDED_BY(mutex_);
    uint64_t last_check_ms_;
    zel::Mutex mutex_;
    CacheSettings settings_;
};

}  // namespace ResHdlCache

// One object for the module, built at load.
extern ResHdlCache::CFifoQueue g_hotCache;
