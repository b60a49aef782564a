// Builders: each turns one kind of alert into a serialised vorn_trace_info message. The class has no objects and keeps
// no state.
//
// Each entry point returns the size of the message in bytes and stores it in `buffer`, a malloc buffer of exactly that
// size. On failure it returns 0 with log lines and leaves `buffer` as it was. All but GetFileTraceProtobuf, which may
// run on any thread, run on the alarm worker. Nodes and documents are borrowed: no builder frees a payload or keeps a
// pointer.
#pragma once

#include <cstdint>
#include <list>
#include <source_location>

#include "common/memory.h"
#include "common/queue_nodes.h"
#include "decode/records.h"

namespace ResHdlCache {
struct ST_CACHE_NODE;
}

// Declared here, so that the floors above get by without the generated code.
namespace vorn_retrace {
class process_vertex;
class threat_alert;
class threat_event;
class threat_rule;
class vorn_trace_info;
enum TRACE_CMD : int;
enum VORN_RISK_TYPE : int;
}  // namespace vorn_retrace

class CGetProtobuf {
public:
    // Events 1536 and 1538. nProcessCount is raised by 1 for each event written, nRiskLevel receives the numeric level;
    // the caller zeroes both first. A repeat is marked in err_code. Texts move from the document into the message: what
    // is left of them in `stData` is unspecified; its GUID, tags, highlights and all numbers stay.
    static uint64_t GetComProtobuf(ST_BUF_DATA& stData, bool bRepeated, zel::MallocBuffer& buffer, int& nProcessCount,
                                   int& nRiskLevel, uint32_t uEventId);
    // Event 1281; also selects the subject's process tree.
    static uint64_t GetIocProtobuf(ST_QUEQE_NODE& stNode, zel::MallocBuffer& buffer);
    // Events 1540, 1541 and 1542: the payload travels on as text.
    static uint64_t GetBfProtobuf(ST_QUEQE_NODE& stNode, zel::MallocBuffer& buffer);
    // Events 1543 and 1544: the payload is a message already; what can be parsed of it goes out.
    static uint64_t GetDetanalProtobuf(ST_QUEQE_NODE& stNode, zel::MallocBuffer& buffer);
    // Events 513 and 518: the request of a host, wrapped in an alert.
    static uint64_t GetFileTraceProtobuf(ST_QUEQE_NODE& stNode, zel::MallocBuffer& buffer);
    // What left the hot cache: the tallies of all hits that were repeated. Without any the message says just that.
    static uint64_t GetDupAlertProtobuf(const std::list<ResHdlCache::ST_CACHE_NODE>& entries,
                                        zel::MallocBuffer& buffer);

    // The last step of every builder, with the results of an entry point. Safe on any thread. The line of a failure
    // names the place of the call.
    static uint64_t SerializeTraceInfo(const vorn_retrace::vorn_trace_info& info, zel::MallocBuffer& buffer,
                                       std::source_location where = std::source_location::current());

private:
    // Steps of all builders. A bool is false when the alert cannot be sent; the line that says why is logged by then.
    static bool GetMainBuf(vorn_retrace::vorn_trace_info* pInfo, vorn_retrace::TRACE_CMD eCmd);

    // JSON alerts, from the alert down to the events.
    static bool GetThreatAlertInfo(ST_BUF_DATA& stData, vorn_retrace::threat_alert* pAlert, int& nProcessCount,
                                   int& nRiskLevel);
    // The tags of all rules for event 1536, "MemDection" for a memory check, none for the others.
    static void SetTraceTags(const ST_BUF_DATA& stData, vorn_retrace::vorn_trace_info* pInfo, uint32_t uEventId);
    static void SetRiskLevel(const ST_BUF_DATA& stData, vorn_retrace::threat_alert* pAlert);
    static void SetRuleStatus(const ST_RULE& stRule, vorn_retrace::threat_rule* pRule);
    static bool SetRuleInfo(ST_BUF_DATA& stData, vorn_retrace::threat_alert* pAlert, int& nProcessCount);
    static void SetRuleTags(const ST_RULE& stRule, vorn_retrace::threat_rule* pRule);
    static bool SetEventInfo(ST_RULE& stRule, vorn_retrace::threat_rule* pRule, int& nProcessCount,
                             vorn_retrace::VORN_RISK_TYPE eAlertType, int nContainerInitPid);
    static bool SetSubjectInfo(ST_RAW_EVENT& stEvent, vorn_retrace::threat_event* pEvent);
    static void SetEventHighlight(const ST_RAW_EVENT& stEvent, vorn_retrace::threat_event* pEvent);
    static bool SetEventPrivateInfo(ST_RAW_EVENT& stEvent, vorn_retrace::threat_event* pEvent, int nContainerInitPid);

    // DNS hits. The variant area is read as kind 2 has it, whatever the kind is.
    static bool GetIocThreatAlertInfo(const ST_QUEQE_NODE& stNode, vorn_retrace::threat_alert* pAlert);
    static bool SetIocEventInfo(const ST_IOC_MSG& stMsg, vorn_retrace::threat_alert* pAlert);
    static bool SetSubjectInfo(const IocVariant2& stArea, vorn_retrace::threat_event* pEvent);
    static bool SetIocObjectInfo(const IocVariant2& stArea, vorn_retrace::threat_event* pEvent);

    // Findings, detection results, file traces.
    static bool SetBfCmd(uint32_t uEventId, vorn_retrace::vorn_trace_info* pInfo);
    static bool SetBfTags(vorn_retrace::vorn_trace_info* pInfo, uint32_t uEventId);
    static bool SetDetanalCmd(uint32_t uEventId, vorn_retrace::vorn_trace_info* pInfo);
    static bool GetFileTraceThreatAlertInfo(const ST_QUEQE_NODE& stNode, vorn_retrace::threat_alert* pAlert);
    static bool SetFileTraceEvent(const ST_QUEQE_NODE& stNode, vorn_retrace::threat_alert* pAlert);
};
