#include "standin/zelcount/ledger.h"

#include <unistd.h>

#include <atomic>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "platform/zel_trc.h"
#include "standin/zelds/zelds_host.h"
#include "standin/zeltrc/zeltrc_host.h"

namespace {

// How often an alert was "not ready", and whether it waits for its next trace.
struct Alert {
    uint64_t not_ready = 0;
    bool waiting = false;
};

// A result that the trace module has handed out. `load` tells which load of the module made it.
struct Buffer {
    uint32_t size;
    uint64_t load;
    std::string guid;
};

// All figures under one lock.
struct Ledger {
    std::mutex mutex;
    zelds_counts ds = {};
    zeltrc_counts trc = {};
    std::unordered_map<std::string, Alert> alerts;
    // The key is the complement of the address: a leak checker would otherwise take the ledger for an owner.
    std::unordered_map<uintptr_t, Buffer> buffers;

    // Taken before `mutex` and held while the host is asked, so that an explainer that was taken off is not running.
    std::mutex explain_mutex;
    zeltrc_explain_t explain = nullptr;
    void* explain_context = nullptr;
};

// Never destroyed, because modules are unloaded while the process ends.
Ledger& ledger = *new Ledger;

// The process of the last load. In a child process that was forked later, a module ends without a word: a thread that
// the child does not have may hold a lock of the ledger or of the host for ever.
std::atomic<pid_t> loading_process{0};
bool is_forked_child() { return loading_process != getpid(); }

uintptr_t key_of(const char* buffer) { return ~reinterpret_cast<uintptr_t>(buffer); }

// A copy, so that the host can be asked without the lock.
std::vector<zelcount::TraceBuffer> outstanding_buffers() {
    const std::lock_guard lock(ledger.mutex);
    std::vector<zelcount::TraceBuffer> list;
    for (const auto& [key, buffer] : ledger.buffers)
        list.push_back({reinterpret_cast<const char*>(~key), buffer.size, buffer.load, buffer.guid});
    return list;
}

}  // namespace

namespace zelcount {

void ds_loaded() {
    loading_process = getpid();
    const std::lock_guard lock(ledger.mutex);
    ++ledger.ds.loads;
}

void ds_unloaded() {
    if (is_forked_child()) return;
    const std::lock_guard lock(ledger.mutex);
    ++ledger.ds.unloads;
}

void ds_updated() {
    const std::lock_guard lock(ledger.mutex);
    ++ledger.ds.updates;
}

void trc_loaded() {
    loading_process = getpid();
    const std::lock_guard lock(ledger.mutex);
    ++ledger.trc.loads;
}

Leftover trc_unloaded() {
    if (is_forked_child()) return {};
    {
        const std::lock_guard lock(ledger.mutex);
        // The lock is let go again at once, because the host is asked outside of it.
        ++ledger.trc.unloads;
    }
    Leftover leftover;
    const std::lock_guard explain_lock(ledger.explain_mutex);
    // The host is asked outside of `mutex`, because its explainer takes locks of its own.
    for (TraceBuffer& buffer : outstanding_buffers()) {
        if (ledger.explain != nullptr && ledger.explain(ledger.explain_context, buffer.buffer) != 0)
            ++leftover.explained;
        else
            leftover.unexplained.push_back(std::move(buffer));
    }
    return leftover;
}

void trc_called(uint32_t function) {
    const std::lock_guard lock(ledger.mutex);
    ++ledger.trc.calls[function];
    // Only calls that work on a message take time.
    if (function >= ZELTRC_COMPLETION) ++ledger.trc.running;
}

void trc_answered(int32_t code) {
    const std::lock_guard lock(ledger.mutex);
    --ledger.trc.running;
    switch (code) {
        case ZEL_TRC_COMPLETE: ++ledger.trc.complete; break;
        case ZEL_TRC_NOT_READY: ++ledger.trc.not_ready; break;
        case ZEL_TRC_DROPPED: ++ledger.trc.dropped; break;
        default: ++ledger.trc.failed;
    }
}

// An alert is known by its GUID, and its count goes on over all of its traces.
bool trc_not_ready(const std::string& guid, uint64_t times) {
    if (times == 0) return false;
    const std::lock_guard lock(ledger.mutex);
    Alert& alert = ledger.alerts[guid];
    if (alert.not_ready >= times) return false;
    ++alert.not_ready;
    // Waiting counts alerts and not answers.
    if (!alert.waiting) ++ledger.trc.waiting;
    return alert.waiting = true;
}

void trc_settled(const std::string& guid, bool another_follows) {
    const std::lock_guard lock(ledger.mutex);
    const auto at = ledger.alerts.find(guid);
    if (at == ledger.alerts.end()) return;
    if (at->second.waiting) --ledger.trc.waiting;
    at->second.waiting = false;
    if (!another_follows) ledger.alerts.erase(at);
}

void trc_handed_out(const char* buffer, uint32_t size, const std::string& guid) {
    const std::lock_guard lock(ledger.mutex);
    // An address may come again after its buffer was freed.
    ledger.buffers.insert_or_assign(key_of(buffer), Buffer{size, ledger.trc.loads, guid});
}

bool trc_taken_back(const char* buffer) {
    const std::lock_guard lock(ledger.mutex);
    if (ledger.buffers.erase(key_of(buffer)) != 0) return true;
    ++(buffer == nullptr ? ledger.trc.null_releases : ledger.trc.foreign_releases);
    return false;
}

}  // namespace zelcount

extern "C" {

STANDIN_EXPORT void zelds_get_counts(zelds_counts* counts) {
    const std::lock_guard lock(ledger.mutex);
    *counts = ledger.ds;
}

STANDIN_EXPORT void zeltrc_get_counts(zeltrc_counts* counts) {
    const std::lock_guard lock(ledger.mutex);
    *counts = ledger.trc;
    counts->outstanding = ledger.buffers.size();
}

STANDIN_EXPORT void zeltrc_set_explainer(zeltrc_explain_t explain, void* context) {
    const std::lock_guard lock(ledger.explain_mutex);
    ledger.explain = explain;
    ledger.explain_context = context;
}

}  // extern "C"
