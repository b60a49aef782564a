#include "suppress/fifoqueue.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <concepts>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "common/checks.h"
#include "common/common.h"
#include "common/log.h"
#include "common/module_path.h"
#include "common/never_ends.h"
#include "suppress/cityhash.h"

namespace {

zel::NeverEnds<ResHdlCache::CFifoQueue> g_cache(GetTickMs());

}  // namespace

ResHdlCache::CFifoQueue& g_hotCache = *g_cache;

namespace ResHdlCache {
namespace {

// A longer key text is cut. With a very long path the process id is then missing, and two processes share an entry.
constexpr size_t kKeyTextSize = 1039;
constexpr int32_t kMinuteMs = 60000;

// The text of a key, cut to its room. Each hit makes one on the bus thread, and a format would cost more than all the
// rest of the hit.
class KeyText {
public:
    void add(std::string_view part) {
        const size_t length = std::min(part.size(), sizeof text_ - size_);
        memcpy(text_ + size_, part.data(), length);
        size_ += length;
    }
    template <std::integral Number>
    void add(Number number) {
        char digits[24];
        const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
        add(std::string_view(digits, end));
    }
    // The key is in small letters; the texts of the hit stay as they came.
    std::string_view small_letters() {
        std::transform(text_, text_ + size_, text_,
                       [](char c) { return static_cast<char>(tolower(static_cast<unsigned char>(c))); });
        return {text_, size_};
    }

private:
    char text_[kKeyTextSize];  // the first size_ characters are set
    size_t size_ = 0;
};

// The type that %llu wants; uint64_t is another type on this platform.
unsigned long long wide(uint64_t value) { return value; }

ST_CACHE_NODE make_entry(const ST_QUEQE_NODE& node) {
    ST_CACHE_NODE entry;
    entry.hash = node.ullCacheKey;
    entry.begin = entry.end = node.pIocMsg->alert_time();
    const std::string& name = node.pIocMsg->strQueryName;
    // A name of 20 characters or more fills the room, and no byte is left for a terminator.
    memcpy(entry.key, name.data(), std::min(name.size(), sizeof entry.key));
    memcpy(entry.alert_id, node.szGuid, sizeof entry.alert_id - 1);
    return entry;
}

// Runs under the mutex.
void tally(ST_CACHE_NODE& entry, uint64_t alert_time) {
    if (entry.count == 0) {
        // The first sighting takes no part in the span: the first repeat starts it anew.
        entry.begin = entry.end = alert_time;
    } else {
        entry.begin = std::min(entry.begin, alert_time);
        entry.end = std::max(entry.end, alert_time);
    }
    ++entry.count;
}

}  // namespace

// The pointer is taken from the whole record, because the text runs past the array `key`.
const char* key_text(const ST_CACHE_NODE& entry) {
    return reinterpret_cast<const char*>(&entry) + offsetof(ST_CACHE_NODE, key);
}

CFifoQueue::CFifoQueue(uint64_t now) : last_check_ms_(now) { mutex_.init(); }

void CFifoQueue::LoadCacheSettings() {
    const std::string file = zel::module_path(zel::kPluginSettings);
    CacheSettings settings;
    for (const CacheSettingRow& row : kCacheSettings)
        settings.*row.goes_to = static_cast<int32_t>(zel::read_setting(row.setting, file));
    settings_ = settings;
}

uint64_t CFifoQueue::CalculateHash(const char* pszDomain, int64_t llProcessTime, const char* pszPath, uint64_t ullPid) {
    if (pszDomain == nullptr || pszPath == nullptr) return 0;
    KeyText text;
    text.add("Domain:");
    text.add(pszDomain);
    text.add(",Ptime:");
    text.add(llProcessTime);
    text.add(",Path:");
    text.add(pszPath);
    text.add(",Pid:");
    text.add(ullPid);
    return zel::CityHash64(text.small_letters());
}

bool CFifoQueue::CheckAlertHot(const ST_IOC_MSG& stMsg, EVENT_ID uEventId) {
    if (uEventId != event_id::ioc || settings_.cache_size == 0) return false;
    const IocVariant2& process = stMsg.process();
    LOG_DEBUG("[%llu]pid:%d, path:%s, create time:%lld, name:%s", wide(stMsg.ullCacheKey),
              static_cast<int>(process.uPid), process.szPath, static_cast<long long>(process.llCreateTime),
              process.szDomain);
    return hit(stMsg.ullCacheKey, stMsg.alert_time());
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

CFifoQueue::Entries CFifoQueue::InsertAlert(const ST_QUEQE_NODE& stNode, uint64_t now) {
    if (stNode.uEventId != event_id::ioc || settings_.cache_size == 0) return {};
    if (!mutex_.valid()) {
        LOG_ERROR("mutex init failed!");
        return {};
    }
    if (known(stNode.ullCacheKey)) return {};  // the older entry stands
    Entries cell;
    ST_CACHE_NODE& entry = cell.emplace_back(make_entry(stNode));
    entry.time = now;
    LOG_DEBUG("New data is inserted into the cache.hash:%llu, alert_guid:%s, key:%s, time:%llu", wide(entry.hash),
              entry.alert_id, key_text(entry), wide(entry.time));
    return insert_and_shed(std::move(cell));
}

// Reads the index without the mutex, which the bus thread may hold for a hit. Only this thread changes the index, so
// its own look-up cannot meet a change.
bool CFifoQueue::known(uint64_t hash) const NO_THREAD_SAFETY_ANALYSIS { return index_.contains(hash); }

// The index takes the entry first, because that may fail. From then on nothing can fail.
CFifoQueue::Entries CFifoQueue::insert_and_shed(Entries cell) {
    const zel::Lock lock(mutex_);
    index_.emplace(cell.front().hash, cell.begin());
    queue_.splice(queue_.begin(), cell);
    LOG_DEBUG("hot cache current size:%d", static_cast<int>(queue_.size()));
    if (queue_.size() < static_cast<size_t>(settings_.cache_size)) return {};

    // cache_size is 10 or more and die_num 10 to 100 percent, so at least one entry goes and at most all of them.
    const int32_t cut = zel::checked_mul(settings_.cache_size, settings_.die_num) / 100;
    Entries shed = take_from(std::next(queue_.begin(), zel::checked_sub(settings_.cache_size, cut)));
    LOG_DEBUG("hot cache queue:%d, die out size:%d", static_cast<int>(queue_.size()), static_cast<int>(shed.size()));
    return shed;
}

// Takes the entries from `first` to the oldest out of queue and index. No step of it can fail. If the index still led
// to an entry that has gone, a later hit would write to freed memory.
CFifoQueue::Entries CFifoQueue::take_from(Entries::iterator first) {
    Entries taken;
    for (auto entry = first; entry != queue_.end(); ++entry) index_.erase(entry->hash);
    taken.splice(taken.begin(), queue_, first, queue_.end());
    return taken;
}

// The queue is in order of age, so the search from the old end stops at the first entry that lives on.
CFifoQueue::Entries CFifoQueue::CheckDieOut(uint64_t now) {
    if (settings_.cache_size == 0) return {};
    // The alarm worker calls this after every turn, so the common answer must cost nothing and take no lock.
    if (now - last_check_ms_ < static_cast<uint64_t>(zel::checked_mul(settings_.die_check_time, kMinuteMs))) return {};
    last_check_ms_ = now;
    const auto limit = static_cast<uint64_t>(zel::checked_mul(settings_.die_time, kMinuteMs));
    const zel::Lock lock(mutex_);
    const auto living = std::find_if(queue_.rbegin(), queue_.rend(),
                                     [&](const ST_CACHE_NODE& entry) { return now - entry.time < limit; });
    Entries dead = take_from(living.base());
    LOG_DEBUG("die out size:%d, queue size:%d", static_cast<int>(dead.size()), static_cast<int>(queue_.size()));
    return dead;
}

void CFifoQueue::forget() {
    const zel::Lock lock(mutex_);
    decltype(index_)().swap(index_);  // clear would leave its table allocated
    queue_.clear();
}

}  // namespace ResHdlCache
