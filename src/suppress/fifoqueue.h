// The hot cache. It remembers DNS hits of the recent past, so that a repeat only raises a tally. Entries leave it
// because they are old or because the cache is full. The caller gets them and reports their tallies in one batch.
//
// Threads: the bus thread calls CheckAlertHot, the alarm worker calls all the rest. The caller gives the time. One
// mutex guards the queue, its entries and the index. The index always has exactly one element for each entry of the
// queue.
#pragma once

#include <cstdint>
#include <list>
#include <unordered_map>

#include "common/mutex.h"
#include "common/queue_nodes.h"
#include "common/setting.h"

namespace ResHdlCache {

// What is remembered of one hit. key and alert_id must be neighbours: key has no terminator of its own, so its readers
// run on into alert_id, which always has one. The lines and the batch show it so.
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

// All are 0 until they are read, and then the cache is off.
struct CacheSettings {
    int32_t cache_size = 0;      // entries; 0 switches the cache off
    int32_t die_check_time = 0;  // minutes
    int32_t die_time = 0;        // minutes
    int32_t die_num = 0;         // percent of cache_size
};

// One key of section "cache" and the member that it sets.
struct CacheSettingRow {
    zel::Setting setting;
    int32_t CacheSettings::* goes_to;
};
inline constexpr CacheSettingRow kCacheSettings[] = {
    {{zel::kPluginSettings, "cache", "cache_size", 1000, 10, 5000, 0}, &CacheSettings::cache_size},
    {{zel::kPluginSettings, "cache", "die_check_time", 60, 1, 1440, 0}, &CacheSettings::die_check_time},
    {{zel::kPluginSettings, "cache", "die_time_linux", 60, 1, 1440, 0}, &CacheSettings::die_time},
    {{zel::kPluginSettings, "cache", "die_num", 30, 10, 100, 0}, &CacheSettings::die_num},
};

class CFifoQueue {
public:
    using Entries = std::list<ST_CACHE_NODE>;  // the newest is first

    // Times are monotonic milliseconds.
    explicit CFifoQueue(uint64_t now);
    // Entries that are still there are not reported.
    virtual ~CFifoQueue() = default;

    // Reads section "cache" of the plug-in's settings. The caller sees to it that no event arrives yet: the settings
    // have no lock. Throws std::bad_alloc and then changes nothing.
    void LoadCacheSettings();
    // True if the hit of event 1281 is a repeat; it is tallied then. Only a repeat ends here, so the first sighting
    // still goes through the whole pipeline.
    bool CheckAlertHot(const ST_IOC_MSG& stMsg, EVENT_ID uEventId) EXCLUDES(mutex_);
    // Remembers the node's hit. If the queue is full with it, the oldest entries come back. Throws std::bad_alloc and
    // then remembers nothing.
    Entries InsertAlert(const ST_QUEQE_NODE& stNode, uint64_t now) EXCLUDES(mutex_);
    // Returns the entries that have grown too old. It looks once in each check period; in between it returns at once.
    Entries CheckDieOut(uint64_t now) EXCLUDES(mutex_);
    // Drops all entries without a report.
    void forget() EXCLUDES(mutex_);

    // The key of a hit. Upper and lower case are the same in domain and path. A null text gives 0.
    static uint64_t CalculateHash(const char* pszDomain, int64_t llProcessTime, const char* pszPath, uint64_t ullPid);

private:
    bool hit(uint64_t hash, uint64_t alert_time) EXCLUDES(mutex_);
    bool known(uint64_t hash) const;
    Entries insert_and_shed(Entries cell) EXCLUDES(mutex_);
    Entries take_from(Entries::iterator first) REQUIRES(mutex_);

    std::unordered_map<uint64_t, Entries::iterator> index_ GUARDED_BY(mutex_);
    Entries queue_ GUARDED_BY(mutex_);
    uint64_t last_check_ms_;
    zel::Mutex mutex_;
    CacheSettings settings_;
};

// The text that starts at the entry's key and runs to the end of its GUID; see ST_CACHE_NODE.
const char* key_text(const ST_CACHE_NODE& entry);

}  // namespace ResHdlCache

// The one hot cache, made when the library is loaded. It is never destroyed: the bus thread may ask it up to the last
// moment of the process.
extern ResHdlCache::CFifoQueue& g_hotCache;
