// The hot cache: remembers DNS hits of the recent past, so that a repeat only raises a tally. The tallies go out in one
// batch when entries leave by age or by pressure.
//
// Threads: CheckAlertHot on the bus thread, all else on the alarm worker. One mutex guards the queue and the entries; the
// index is changed by the alarm worker alone, under the mutex.
#pragma once

#include <cstdint>
#include <list>
#include <unordered_map>

#include "common/mutex.h"
#include "common/queue_nodes.h"

namespace ResHdlCache {

struct ST_CACHE_NODE {
    uint32_t count = 0;  // repeats; the first sighting is none
    uint64_t hash = 0;
    uint64_t begin = 0;  // lowest and highest alert time among the repeats
    uint64_t end = 0;
    char key[20] = {};   // no terminator of its own: a reader runs on into alert_id
    char alert_id[kGuidSize] = {};
    uint64_t time = 0;   // monotonic milliseconds at insertion
};

class CFifoQueue {
public:
    CFifoQueue();
    virtual ~CFifoQueue() = default;

    // Reads section "cache" of the plug-in's settings.
    void LoadCacheSettings();
    // True if the hit of event 1281 is a repeat, which is tallied then.
    bool CheckAlertHot(const ST_IOC_MSG& stMsg, EVENT_ID uEventId);
    // Remembers the node's hit; sheds the oldest entries of a full queue and reports them.
    void InsertAlert(const ST_QUEQE_NODE& stNode);
    // Reports entries that have grown too old, once in each check period.
    void CheckDieOut();

    static uint64_t CalculateHash(const char* pszDomain, int64_t llProcessTime, const char* pszPath, uint64_t ullPid);

private:
    using Queue = std::list<ST_CACHE_NODE>;

    bool hit(uint64_t hash, uint64_t alert_time) EXCLUDES(mutex_);
    bool known(uint64_t hash) const;
    Queue die_out_by_age() EXCLUDES(mutex_);
    void report(Queue entries) EXCLUDES(mutex_);

    std::unordered_map<uint64_t, Queue::iterator> index_;
    Queue queue_ GUARDED_BY(mutex_);
    uint64_t last_check_ms_;
    zel::Mutex mutex_;
    // Settings; written once before events arrive.
    int32_t cache_size_ = 0;  // entries; 0 switches the cache off
    int32_t die_check_time_ = 0;  // minutes
    int32_t die_time_ = 0;        // minutes
    int32_t die_num_ = 0;         // percent of cache_size_
};

}  // namespace ResHdlCache

// One object for the module, built at load.
extern ResHdlCache::CFifoQueue g_hotCache;
