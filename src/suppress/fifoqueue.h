// The hot cache: remembers DNS hits of the recent past, so that a repeat only raises a tally. Entries leave it by age or
// by pressure; the caller gets them and reports their tallies in one batch.
//
// Threads: CheckAlertHot on the bus thread, all else on the alarm worker; the clock comes from outside. One mutex guards
// the queue, the entries and the index. The index has one entry for each entry of the queue, always.
#pragma once

#include <cstdint>
#include <list>
#include <unordered_map>

#include "common/mutex.h"
#include "common/queue_nodes.h"
#include "common/setting.h"

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
    using Entries = std::list<ST_CACHE_NODE>;  // newest first

    // Times are monotonic milliseconds.
    explicit CFifoQueue(uint64_t now);
    // Entries that are left go unreported.
    virtual ~CFifoQueue() = default;

    // Reads section "cache" of the plug-in's settings; before events arrive. Throws std::bad_alloc and then changes
    // nothing.
    void LoadCacheSettings();
    // True if the hit of event 1281 is a repeat, which is tallied then.
    bool CheckAlertHot(const ST_IOC_MSG& stMsg, EVENT_ID uEventId) EXCLUDES(mutex_);
    // Remembers the node's hit. Returns the oldest entries of a queue that is full with it. Throws std::bad_alloc and
    // then remembers nothing.
    Entries InsertAlert(const ST_QUEQE_NODE& stNode, uint64_t now) EXCLUDES(mutex_);
    // Returns entries that have grown too old, once in each check period.
    Entries CheckDieOut(uint64_t now) EXCLUDES(mutex_);
    // Drops all entries, unreported.
    void forget() EXCLUDES(mutex_);

    // 0 for a null text. Domain and path count without regard to case.
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

// What follows the key in its entry, up to the end of the GUID; see ST_CACHE_NODE.
const char* key_text(const ST_CACHE_NODE& entry);

}  // namespace ResHdlCache

// The one hot cache, made when the library is loaded. It never ends: the bus thread may ask it up to the last moment of
// the process.
extern ResHdlCache::CFifoQueue& g_hotCache;
