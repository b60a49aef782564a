#include "suppress/fifoqueue.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "common/checks.h"
#include "common/common.h"
#include "common/log.h"
#include "common/memory.h"
#include "common/module_path.h"
#include "common/reshdlevent.h"
#include "retrace.pb.h"
#include "suppress/cityhash.h"

ResHdlCache::CFifoQueue g_hotCache;

namespace ResHdlCache {
namespace {

constexpr size_t kKeyTextSize = 1040;  // a longer key text is cut, so that a very long path drops the process id
constexpr int32_t kMinuteMs = 60000;

unsigned long long wide(uint64_t value) { return value; }

// The key and what follows it, through the bytes of the whole record.
const char* key_text(const ST_CACHE_NODE& entry) {
    return reinterpret_cast<const char*>(&entry) + offsetof(ST_CACHE_NODE, key);
}

ST_CACHE_NODE make_entry(const ST_QUEQE_NODE& node) {
    ST_CACHE_NODE entry;
    entry.hash = node.ullCacheKey;
    entry.begin = entry.end = node.pIocMsg->alert_time();
    const std::string& name = node.pIocMsg->strQueryName;
    memcpy(entry.key, name.data(), std::min(name.size(), sizeof entry.key));
    memcpy(entry.alert_id, node.szGuid, sizeof entry.alert_id - 1);
    return entry;
}

void tally(ST_CACHE_NODE& entry, uint64_t alert_time) {
    if (entry.count == 0) {
        entry.begin = entry.end = alert_time;  // the first sighting takes no part in the span
    } else {
        entry.begin = std::min(entry.begin, alert_time);
        entry.end = std::max(entry.end, alert_time);
    }
    ++entry.count;
}

std::string agent_id() {
    const char* id = getenv("agentid");
    if (id == nullptr) {
        LOG_ERROR("get agentid from env error !");
        return UintToString(0);
    }
    LOG_INFO("get agentid %s", id);
    return id;
}

void add_to_report(vorn_retrace::vorn_trace_info& info, const ST_CACHE_NODE& entry) {
    vorn_retrace::dup_alert& repeat = *info.add_dup_alerts();
    repeat.set_alert_guid(entry.alert_id);
    repeat.set_malicious_key(key_text(entry));
    repeat.set_dup_count(static_cast<int32_t>(entry.count));
    repeat.set_same_alert_key(entry.hash);
    repeat.set_first_hit_time(static_cast<int64_t>(entry.begin));
    repeat.set_recent_hit_time(static_cast<int64_t>(entry.end));
    LOG_INFO("report data:alert_id:%s, count:%u, hash:%llu, begin:%llu, end:%llu, key:%s", entry.alert_id, entry.count,
             wide(entry.hash), wide(entry.begin), wide(entry.end), key_text(entry));
}

void send(const vorn_retrace::vorn_trace_info& info) {
    const size_t size = info.ByteSizeLong();
    zel::MallocBuffer buffer = zel::calloc_buffer(size);
    if (buffer == nullptr) {
        LOG_ERROR("new protobuf error!");
        return;
    }
    if (!info.SerializeToArray(buffer.get(), static_cast<int>(size))) {
        LOG_ERROR("SerializeToArray failed!");
        return;
    }
    // The const getter: the batch has no threat, and must not get an empty one.
    const char* guid = info.threat().alert_guid().c_str();
    const ReshdlEventTrace::EventRef event = InvokeEvent(event_id::finished_trace, event_id::ioc, buffer.get(), size,
                                                         ReshdlEventTrace::EDataType::plugin, guid);
    if (event == nullptr) {
        LOG_ERROR("trc dup invoke failed!");
        return;
    }
    buffer.release();  // the event's now
}

}  // namespace

CFifoQueue::CFifoQueue() : last_check_ms_(GetTickMs()) { mutex_.init(); }

void CFifoQueue::LoadCacheSettings() {
    const std::string file = zel::module_path("@/../config/zelreshdl.ini");
    for (const CacheSetting& setting : kCacheSettings)
        settings_.*setting.value = static_cast<int32_t>(CltCommon::IniGetUintExA(
            "cache", setting.key, setting.default_value, setting.lowest, setting.highest, file.c_str()));
}

uint64_t CFifoQueue::CalculateHash(const char* pszDomain, int64_t llProcessTime, const char* pszPath, uint64_t ullPid) {
    if (pszDomain == nullptr || pszPath == nullptr) return 0;
    char text[kKeyTextSize] = {};
    zel_str_snprintf(text, sizeof text, "Domain:%s,Ptime:%lld,Path:%s,Pid:%llu", pszDomain,
                     static_cast<long long>(llProcessTime), pszPath, wide(ullPid));
    const size_t size = strlen(text);
    if (size == 0) return 0;
    std::transform(text, text + size, text,
                   [](char c) { return static_cast<char>(tolower(static_cast<unsigned char>(c))); });
    return zel::CityHash64({text, size});
}

bool CFifoQueue::CheckAlertHot(const ST_IOC_MSG& stMsg, EVENT_ID uEventId) {
    if (uEventId != event_id::ioc || settings_.cache_size == 0) return false;
    const IocVariant2 process = stMsg.process();
    const uint64_t hash = CalculateHash(process.szDomain, process.llCreateTime, process.szPath, process.uPid);
    LOG_DEBUG("[%llu]pid:%d, path:%s, create time:%lld, name:%s", wide(hash), static_cast<int>(process.uPid),
              process.szPath, static_cast<long long>(process.llCreateTime), process.szDomain);
    return hit(hash, stMsg.alert_time());
}

bool CFifoQueue::hit(uint64_t hash, uint64_t alert_time) {
    if (!mutex_.valid()) {
        LOG_ERROR("mutex init failed!");
        return false;
    }
    const zel::Lock lock(mutex_);
    const auto found = index_.find(hash);
    if (found == index_.end()) return false;
    ST_CACHE_NODE& entry = *found->second;
    tally(entry, alert_time);
    LOG_DEBUG("Hit the hot cache.hash:%llu, alert_guid:%s, key:%s, time:%llu, count:%u", wide(hash), entry.alert_id,
              key_text(entry), wide(entry.time), entry.count);
    return true;
}

void CFifoQueue::InsertAlert(const ST_QUEQE_NODE& stNode) {
    if (stNode.uEventId != event_id::ioc || settings_.cache_size == 0) return;
    ST_CACHE_NODE entry = make_entry(stNode);
    if (!mutex_.valid()) {
        LOG_ERROR("mutex init failed!");
        return;
    }
    if (known(entry.hash)) return;  // the older entry stands
    entry.time = GetTickMs();
    LOG_DEBUG("New data is inserted into the cache.hash:%llu, alert_guid:%s, key:%s, time:%llu", wide(entry.hash),
              entry.alert_id, key_text(entry), wide(entry.time));
    report(insert_and_shed(entry));
}

// Without the mutex, which the bus thread may hold: only this thread changes the index, so a look-up of its own cannot
// meet a change.
bool CFifoQueue::known(uint64_t hash) const NO_THREAD_SAFETY_ANALYSIS { return index_.contains(hash); }

CFifoQueue::Queue CFifoQueue::insert_and_shed(ST_CACHE_NODE entry) {
    Queue shed;
    const zel::Lock lock(mutex_);
    queue_.push_front(entry);
    index_[entry.hash] = queue_.begin();
    LOG_DEBUG("hot cache current size:%d", static_cast<int>(queue_.size()));
    if (queue_.size() < static_cast<size_t>(settings_.cache_size)) return shed;

    const int32_t cut = zel::checked_mul(settings_.cache_size, settings_.die_num) / 100;
    shed.splice(shed.begin(), queue_, std::next(queue_.begin(), zel::checked_sub(settings_.cache_size, cut)),
                queue_.end());
    LOG_DEBUG("hot cache queue:%d, die out size:%d", static_cast<int>(queue_.size()), static_cast<int>(shed.size()));
    return shed;
}

void CFifoQueue::CheckDieOut() {
    if (settings_.cache_size == 0) return;
    const uint64_t now = GetTickMs();
    if (now - last_check_ms_ < static_cast<uint64_t>(zel::checked_mul(settings_.die_check_time, kMinuteMs))) return;
    last_check_ms_ = now;
    report(die_out_by_age());
}

// The queue is in order of age, so the walk ends at the first entry that lives on.
CFifoQueue::Queue CFifoQueue::die_out_by_age() {
    const uint64_t limit = static_cast<uint64_t>(zel::checked_mul(settings_.die_time, kMinuteMs));
    const uint64_t now = GetTickMs();
    Queue dead;
    const zel::Lock lock(mutex_);
    const auto living = std::find_if(queue_.rbegin(), queue_.rend(),
                                     [&](const ST_CACHE_NODE& entry) { return now - entry.time < limit; });
    dead.splice(dead.begin(), queue_, living.base(), queue_.end());
    LOG_DEBUG("die out size:%d, queue size:%d", static_cast<int>(dead.size()), static_cast<int>(queue_.size()));
    return dead;
}

// From here on the bus thread finds the entry no more, so that it is the reporter's alone.
void CFifoQueue::forget(const ST_CACHE_NODE& entry) {
    const zel::Lock lock(mutex_);
    index_.erase(entry.hash);
}

// The mutex is held for each erasure only: message and bus must not hold up the bus thread. A batch in which nothing
// was repeated is sent all the same, empty.
void CFifoQueue::report(Queue entries) {
    if (entries.empty()) return;
    vorn_retrace::vorn_trace_info info;
    info.set_agent_id(agent_id());
    info.set_cmd(vorn_retrace::TRACE_CMD_DUP_ALERT);
    for (const ST_CACHE_NODE& entry : entries) {
        forget(entry);
        if (entry.count != 0) add_to_report(info, entry);
    }
    entries.clear();
    send(info);
}

}  // namespace ResHdlCache
