// The batch of DNS hits that were repeated while the hot cache remembered them.
#include <cstdlib>

#include "common/common.h"
#include "common/log.h"
#include "suppress/fifoqueue.h"
#include "trace/getprotobuf.h"
#include "trace/getprotobuf_steps.h"

using namespace vorn_retrace;

namespace {

// The text of an agent without an id is the same as in other messages, the lines in the log are not.
std::string agent_id() {
    const char* id = getenv("agentid");
    if (id == nullptr) {
        LOG_ERROR("get agentid from env error !");
        return UintToString(0);
    }
    LOG_INFO("get agentid %s", id);
    return id;
}

void add_repeats(const ResHdlCache::ST_CACHE_NODE& entry, vorn_trace_info& info) {
    dup_alert& repeats = *info.add_dup_alerts();
    repeats.set_alert_guid(entry.alert_id);
    repeats.set_malicious_key(key_text(entry));
    repeats.set_dup_count(static_cast<int32_t>(entry.count));
    repeats.set_same_alert_key(entry.hash);
    repeats.set_first_hit_time(static_cast<int64_t>(entry.begin));
    repeats.set_recent_hit_time(static_cast<int64_t>(entry.end));
    LOG_INFO("report data:alert_id:%s, count:%u, hash:%llu, begin:%llu, end:%llu, key:%s", entry.alert_id, entry.count,
             static_cast<unsigned long long>(entry.hash), static_cast<unsigned long long>(entry.begin),
             static_cast<unsigned long long>(entry.end), key_text(entry));
}

}  // namespace

uint64_t CGetProtobuf::GetDupAlertProtobuf(const std::list<ResHdlCache::ST_CACHE_NODE>& entries,
                                           zel::MallocBuffer& buffer) {
    const zel::TraceInfo info;
    info->set_agent_id(agent_id());
    info->set_cmd(TRACE_CMD_DUP_ALERT);
    for (const ResHdlCache::ST_CACHE_NODE& entry : entries)
        if (entry.count != 0) add_repeats(entry, *info);
    return SerializeTraceInfo(*info, buffer);
}
