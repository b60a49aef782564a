// The hot cache. The model is one list of entries, the newest first.
#include <deque>
#include <memory>

#include "models/model.h"
#include "support/settings_folder.h"
#include "suppress/fifoqueue.h"

namespace models {
namespace {

using ResHdlCache::CFifoQueue;
using ResHdlCache::ST_CACHE_NODE;

enum : size_t { hit, insert, pass, forget, other_event, configure };

constexpr uint64_t kMinuteMs = 60'000;
constexpr uint32_t kKeys = 24;  // about twice as many as the cache holds

struct Limits {
    uint32_t size, percent, check_minutes, age_minutes;
};
constexpr Limits kLimits[] = {{10, 30, 1, 1}, {10, 100, 1, 3}, {11, 10, 3, 1}, {13, 55, 2, 5}};
constexpr uint64_t kTimes[] = {0, 1, 59'999, 60'000, 60'001, 120'000, 179'999, 180'000, 400'000};

std::string time_shown(const std::array<uint32_t, 3>& numbers) { return std::to_string(kTimes[numbers[0]]) + " ms"; }

std::string name_of(uint32_t key) { return "name-" + std::to_string(key); }
std::string guid_of(uint32_t key) { return "guid-" + std::to_string(key); }

ST_IOC_MSG message(uint32_t key, uint64_t alert_time) {
    ST_IOC_MSG msg;
    msg.ullCacheKey = key;
    msg.ullHead[12] = alert_time;
    msg.strQueryName = name_of(key);
    return msg;
}

struct Entry {
    uint32_t key;
    uint64_t inserted;
    uint32_t repeats = 0;
    uint64_t lowest = 0, highest = 0;  // times of the repeats, or that of the first sighting without any
};

struct ModelCache {
    Limits limits;
    uint64_t last_check;
    std::deque<Entry> entries = {};

    Entry* find(uint32_t key) {
        for (Entry& entry : entries)
            if (entry.key == key) return &entry;
        return nullptr;
    }
    std::deque<Entry> cut(size_t kept) {
        std::deque<Entry> gone;
        while (entries.size() > kept) {
            gone.push_front(entries.back());
            entries.pop_back();
        }
        return gone;
    }
};

void compare(const CFifoQueue::Entries& given, const std::deque<Entry>& expected) {
    RC_ASSERT(given.size() == expected.size());
    auto entry = expected.begin();
    for (const ST_CACHE_NODE& node : given) {
        RC_ASSERT(node.hash == entry->key);
        RC_ASSERT(node.count == entry->repeats);
        RC_ASSERT(node.begin == entry->lowest);
        RC_ASSERT(node.end == entry->highest);
        RC_ASSERT(node.time == entry->inserted);
        RC_ASSERT(ResHdlCache::key_text(node) == name_of(entry->key));
        RC_ASSERT(std::string(node.alert_id) == guid_of(entry->key));
        ++entry;
    }
}

// The component and its model side by side.
class Pair {
public:
    Pair() { start(kLimits[0]); }

    void play(const Step& step);

private:
    void start(const Limits& limits);
    void play_hit(uint32_t key, uint64_t alert_time);
    void play_insert(uint32_t key, uint64_t alert_time);
    void play_pass(uint64_t ms);

    uint64_t now_ = 1'000'000;
    std::unique_ptr<CFifoQueue> cache_;
    ModelCache model_;
};

// As at an attachment to the bus: the settings are read once in the life of a cache.
void Pair::start(const Limits& limits) {
    std::string text = "[cache]\ncache_size=" + std::to_string(limits.size);
    text += "\ndie_num=" + std::to_string(limits.percent);
    text += "\ndie_check_time=" + std::to_string(limits.check_minutes);
    text += "\ndie_time_linux=" + std::to_string(limits.age_minutes) + "\n";
    zel_test::SettingsFolder::get().write("zelreshdl.ini", text);
    cache_ = std::make_unique<CFifoQueue>(now_);
    cache_->LoadCacheSettings();
    model_ = {limits, now_};
}

void Pair::play_hit(uint32_t key, uint64_t alert_time) {
    Entry* const entry = model_.find(key);
    RC_ASSERT(cache_->CheckAlertHot(message(key, alert_time), event_id::ioc) == (entry != nullptr));
    if (entry == nullptr) return;
    entry->lowest = entry->repeats == 0 ? alert_time : std::min(entry->lowest, alert_time);
    entry->highest = entry->repeats == 0 ? alert_time : std::max(entry->highest, alert_time);
    ++entry->repeats;
}

void Pair::play_insert(uint32_t key, uint64_t alert_time) {
    ST_QUEQE_NODE node;
    node.uEventId = event_id::ioc;
    node.ullCacheKey = key;
    node.pIocMsg = std::make_unique<ST_IOC_MSG>(message(key, alert_time));
    set_guid(node, guid_of(key).c_str());
    if (model_.find(key) == nullptr) model_.entries.push_front({key, now_, 0, alert_time, alert_time});
    const Limits& limits = model_.limits;
    const bool full = model_.entries.size() >= limits.size;
    compare(cache_->InsertAlert(node, now_),
            model_.cut(full ? limits.size - limits.size * limits.percent / 100 : limits.size));
}

void Pair::play_pass(uint64_t ms) {
    now_ += ms;
    size_t kept = model_.entries.size();
    if (now_ - model_.last_check >= model_.limits.check_minutes * kMinuteMs) {
        model_.last_check = now_;
        while (kept > 0 && now_ - model_.entries[kept - 1].inserted >= model_.limits.age_minutes * kMinuteMs) --kept;
    }
    compare(cache_->CheckDieOut(now_), model_.cut(kept));
}

void Pair::play(const Step& step) {
    switch (step.act) {
        case hit: return play_hit(step[0], step[1]);
        case insert: return play_insert(step[0], step[1]);
        case pass: return play_pass(kTimes[step[0]]);
        case forget:
            cache_->forget();
            model_.entries.clear();
            return;
        case other_event: {
            ST_QUEQE_NODE node;
            node.uEventId = event_id::kov;
            node.ullCacheKey = step[0];
            compare(cache_->InsertAlert(node, now_), {});
            RC_ASSERT(!cache_->CheckAlertHot(message(step[0], 0), event_id::kov));
            return;
        }
        default: return start(kLimits[step[0]]);
    }
}

void play(const Steps& steps) {
    Pair pair;
    for (const Step& step : steps.list) pair.play(step);
}

}  // namespace

const Model& hot_cache() {
    static const Model model{"hot cache",
                             {{"hit", 60, {kKeys, 100}},
                              {"insert", 80, {kKeys, 100}},
                              {"pass", 30, {std::size(kTimes)}, time_shown},
                              {"forget", 1},
                              {"another event", 4, {kKeys}},
                              {"configure", 2, {std::size(kLimits)}}},
                             300,
                             play};
    return model;
}

}  // namespace models
