#include "host/explain/story_texts.h"

#include <algorithm>

#include "host/explain/log_format.h"

namespace zelhost {
namespace {

// Short names keep each row of the table on one line.
using enum Says;
constexpr Writer bus = Writer::bus;
constexpr Writer alarm = Writer::alarm;
constexpr Writer trace = Writer::trace;
constexpr Writer either = Writer::either_worker;
constexpr Writer any = Writer::any;
constexpr int no_guid = -1;

// One row a text. A format that begins with a value stands at the end, because its line may begin like any other.
constexpr StoryText kTexts[] = {
    // The process.
    {"Start handled event.", any, started},
    {"Stop handled event.", any, stopping},
    {"queue max:%lu, interval:%lu, trace val:%lu, trc time:%lu, trc times:%lu, ioa match queue size:%lu, "
     "disable scan scenario limit:%lu, alert_filter_switch:%lu",
     any, settings},
    {"plugin_configuration_update data:%s size: %u", any, configured},
    {"set max delay second to: %d", any, limit},
    {"max skip behavior level: %d", any, trunk_level},
    {"start reset_db_begin!", any, reset_begins},
    {"start reset_db_end!", any, reset_ends},
    {"start file trace!", any, file_trace},

    // Intake.
    {"get event:%u", bus, taken},
    {"[-IOC-]pid:%d, guid:%s, path:%s, create time:%lld, name:%s", bus, dns_hit},
    {"[%llu]pid:%d, path:%s, create time:%lld, name:%s", bus, nothing},
    {"[%llu]pid:%d, path:%s, ptime:%llu, name:%s", bus, nothing},
    {"receive one ioc alert, qury_name:%s, guid:%s", bus, named, 1},
    {"Hit the hot cache.hash:%llu, alert_guid:%s, key:%s, time:%llu, count:%u", bus, hot_hit, 1},
    {"The event is in the hot cache.event:%u", bus, hot, no_guid, End::hot},
    {"[work queue count : %zu]", bus, queued},
    {"The queue reached the threshold. Event queue:%zu, trc queue:%zu, delay queue:%zu", bus, queue_full, no_guid,
     End::queue_full},
    {"unknown event id:%u", bus, complaint_at_intake},
    {"unknown event id : %u", bus, complaint_at_intake},
    {"Evt->GetNativeEvent error", bus, complaint_at_intake},
    {"Evt->QueryInterface IDnsEvent error, 0x%08x", bus, complaint_at_intake},
    {"new(std::nothrow)ST_IOC_MSG error!", bus, complaint_at_intake},
    {"new(std::nothrow)ST_QUEQE_NODE failed!", bus, complaint_at_intake},
    {"(char*)calloc(uSize, sizeof(char)) failed!", bus, complaint_at_intake},
    {"GetNativeEventData failed!", bus, lost_at_intake, no_guid, End::no_payload},
    {"Get event struct error!", bus, lost_at_intake, no_guid, End::not_taken},
    {"%s given up: %s", bus, lost_at_intake, no_guid, End::given_up, "bus event"},

    // From the queue to the decoded document.
    {"start handle %d!", alarm, begun},
    {"start handle %s!", alarm, begun_named},
    {"ignore handle: %d!", alarm, ignored, no_guid, End::ignored},
    {"jsonparse_strContainerId:%s, strImageId:%s, strContainerName:%s", alarm, container},
    {"get json value error.key:%s", alarm, complaint},
    {"get json value error.", alarm, complaint},
    {"get json obj error.", alarm, complaint},
    {"get json object error:[ScenarioInfo]", alarm, complaint},
    {"get json array item error:[LinkSet]", alarm, complaint},
    {"GetProcessSet failed!", alarm, complaint},
    {"unknown type:%d", alarm, complaint},
    {"The json event is unknown.%d", alarm, complaint},
    {"The event is unknown.event:%%", alarm, complaint},
    {"The event is unknown.event:%u", alarm, complaint},
    {"GetRawEventInfo failed!", alarm, complaint},
    {"GetRawEventInfoEx error.", alarm, complaint},
    {"GetEventPrivateInfo error!", alarm, complaint},
    {"GetRuleInfo failed!", alarm, complaint},
    {"GetRuleInfoEx error.", alarm, complaint},
    {"GetExtenedInfo failed!\n", alarm, complaint},
    {"new(std::nothrow)%s error", alarm, complaint},
    {"GetJsonInfo failed!", alarm, lost, no_guid, End::undecoded},

    // Filters and memory checks.
    {"The alarm has been filtered.[%s], guid:%s", alarm, lost, 1, End::filtered},
    {"ioa rule match times out of limit, skip scenario scan", alarm, braked},
    {"start invoke md event!", alarm, nothing},
    {"invoke md event succeed!", alarm, nothing},
    {"invoke MEM_DETECT_EVENT: pid [%d], path [%s], confidence [%d]", alarm, memory_check},
    {"Type is not supported.%d", alarm, nothing},
    {"no memory for a text of a memory check: %s", alarm, nothing},
    {"malloc failed!", alarm, nothing},
    {"Trigger rule only, skip. guid:%s", alarm, lost, 0, End::trigger_only},
    {"clean alert event cache once.", alarm, forgets_repeats},
    {"cal_alert_key failed!", alarm, nothing},
    {"repeat alert event! guid: %s", alarm, repeated, 0},
    {"The alert has been repeated. guid:%s", alarm, repeated, 0},

    // Building.
    {"get cwpp agentid[%s]", alarm, builds},
    {"get agentid from env error !", alarm, builds, no_guid, End::waiting, {}, "getprotobuf.cpp"},
    {"[ds]str: %s not Ascii", alarm, nothing},
    {"[ds]str: %s not utf-8", alarm, bad_text},
    {"SetSubjectInfo failed!", alarm, complaint},
    {"Set event info failed", alarm, complaint},
    {"param is error!", alarm, complaint},
    {"file path:%s, docker_file_path:%s", alarm, nothing},
    {"open file error", alarm, nothing},
    {"get file size error", alarm, nothing},
    {"new protobuf error!", alarm, complaint},
    {"SerializeToArray failed!", alarm, complaint},
    {"Unknown event!", alarm, complaint},
    {"Get com protobuf failed!", alarm, lost, no_guid, End::unbuilt},
    {"event_id:%lu, data_size:%llu.", alarm, nothing},
    {"event_id:%lu, data:\r\n %s.", alarm, nothing},

    // The hot cache.
    {"New data is inserted into the cache.hash:%llu, alert_guid:%s, key:%s, time:%llu", alarm, entered_cache, 1},
    {"hot cache current size:%d", alarm, nothing},
    {"hot cache queue:%d, die out size:%d", alarm, sheds_from_cache},
    {"die out size:%d, queue size:%d", alarm, ages_cache},
    {"report data:alert_id:%s, count:%u, hash:%llu, begin:%llu, end:%llu, key:%s", alarm, batch_of_repeats, 0},

    // Sending.
    {"invoke buf size:%u", either, sends},
    {"invoke event succeed!", either, sent},
    {"create event error!", either, not_made},
    {"Invoke buf is null!", either, not_made},
    {"dispatcher is null!", either, not_made},
    {"event invoke failed! guid:%s", either, unsent_named, 0, End::unsent},
    {"event invoke failed!", either, unsent, no_guid, End::unsent},
    {"trc_ex event invoke failed!", alarm, lost, no_guid, End::unsent},
    {"%s given up: %s", alarm, lost, no_guid, End::given_up, "event"},

    // On the way to the trace.
    {"host alert,trace", alarm, goes_to_trace},
    {"container alert, not trace. guid:%s", alarm, goes_nowhere, 0},
    {"node event id: %d, process count: %d, risk level: %d, guid: %s, push into eliminator", alarm, queued_for_trace,
     3},
    {"new(std::nothrow)ST_DELAY_QUEQE_NODE failed!", alarm, trace_lost},
    {"new(std::nothrow)ST_DELAY_QUEQE_NODE", alarm, trace_lost},
    {"new(std::nothrow)ST_QUEQE_NODE", alarm, trace_lost},
    {"(char*)calloc(uPbSize, sizeof(char)) failed!", alarm, trace_lost},
    {"(char *)calloc(uSize, sizeof(char)) failed!", either, trace_lost},
    {"no memory to queue a trace, guid:%s", either, trace_lost, 0},

    // Traces.
    {"zeltrc comp function is null.", either, lost, no_guid, End::no_function},
    {"Failed to complete the alarm information.", either, not_completed},
    {"GetKovAlarm failed!", either, trace_note},
    {"GetComResult failed!", trace, trace_note},
    {"Try more than %d times, discard! guid:%s", either, tries_over, 1},
    {"alert trace retry, guid:%s", either, retry, 0},
    {"alert trace success, guid:%s", either, success, 0},
    {"alert trace failed, guid:%s", either, failed, 0},
    {"alert trace dropped, guid:%s", either, dropped, 0},
    {"node event id: %d, process count: %d, risk level: %d, guid: %s, pop from eliminator", trace, left_eliminator, 3},
    {"node event id: %d, process count: %d, risk level: %d, cost: %dms", trace, cost},
    {"procees count in alarm is zero!", trace, trace_note},
    {"current predict time, truck trace: %d, full trace: %d", trace, predicts},
    {"predict delay time: %d", trace, predicted},
    {"drop alarm: %s", trace, shed, 0},
    {"%s given up: %s", trace, trace_given_up, no_guid, End::given_up, "trace"},
    {"%s given up: %s", either, call_given_up, no_guid, End::waiting, "call of the trace module"},

    // Formats that begin with a value.
    {"%s is not 0x%08x.", alarm, complaint},
    {"%s is not string.", alarm, complaint},
    {"%s", alarm, complaint, no_guid, End::waiting, {}, "protobuf"},
};

// A text that may be of several threads, or of none with an alert in hand, stands here as well.
constexpr std::string_view kSilent[] = {
    "Error: Buffer size is too small for the result.",
    "Events do not.id:%u",
    "Evt is null, OnEvent do not handle",
    "Create event Failed",
    "Create guid error!",
    "Failed to start the worker thread.",
    "GetReshdlInstance failed.",
    "Invalid parameter!",
    "LoadMbDll failed!",
    "The module has been imported.",
    "The plug-in is not initialized",
    "The worker thread has been initialized.",
    "ZelbpmgrApi init failed, m_register_report_cb get error.",
    "ZelbpmgrApi init successful.",
    "ZelbpmgrApi init.",
    "[ZEL_BPMGR_REGISTER] module_name: %% error.",
    "delay_time is not a string",
    "dll open zel_bpmgr failed, errcode:0x%08x",
    "dll open zel_bpmgr success",
    "dll open zel_bpsdk failed, errcode:0x%08x",
    "dll open zel_bpsdk success",
    "dll_get_addr failed!0x%08x",
    "drop trace will decrease: %dms",
    "ds dll open failed!0x%08x",
    "file path %s ini_file_load error",
    "file path %s is not exist",
    "get %s file path %s",
    "get agentid %s",
    "get agentid from env error !",
    "getZelreshdlDataInfo:%s",
    "ini_file_get failed!",
    "ini_file_get section : %s , key : %s failed",
    "ini_file_load failed!",
    "init eliminator manager failed!",
    "init failed!",
    "init zel_bpsdk failed, errcode:0x%08x",
    "init zel_bpsdk success",
    "invalid param",
    "level: %d, count: %d",
    "load moudle failed!",
    "malloc data failed!",
    "malloc node filed!",
    "mb advise failed!0x%08x",
    "mb dll open failed!0x%08x",
    "mb dll_get_addr failed!0x%08x",
    "mb get object failed!0x%08x",
    "mutex init failed!",
    "mutex_init error.",
    "mutex_init failed!",
    "mutex_init failed",
    "on parser json",
    "reshdlproto_flag not exist",
    "section : %s , key : %s failed over the limit",
    "skip behavior level: %d, trunk trace predict: %dms, full trace precit: %dms",
    "start handled event.",
    "start proc trace!",
    "stop handled event.",
    "stop work thread!",
    "thread_start failed, 0x%08x",
    "total IOA and Memory Torgan alarm predict cost: %d",
    "trace_event_init failed!hr = 0x%08x",
    "trc dup invoke failed!",
    "unknown event id:%d",
    "update truck trace time: %d, full trace time: %d",
    "zelreshdl start work thread!",
    "zelreshdlBpFunc start.",
    "zeltrc dll open failed!0x%08x",
    "zeltrc proc_trc comp function is null.",
    "%s given up: %s",
};

// A line holds what stands before a line end in its format.
// A logger may write line ends as they stand in the format. The rest is a line of its own in a
// file.
constexpr std::string_view first_line(std::string_view format) {
    return format.substr(0, format.find_first_of("\r\n"));
}

// By the first row that can have written the text.
// Rows are tried in their order, since a line may fit several formats.
Reading read_with(std::span<const StoryText> rows, std::string_view text, std::string_view file) {
    for (const StoryText& row : rows) {
        const std::string_view format = first_line(row.format);
        // Most rows fall out by their first letters. The exact comparison is slower.
        if (!text.starts_with(head_of(format)) || file.find(row.file) == std::string_view::npos) continue;
        auto values = values_of(text, format, row.guid);
        if (!values || (!row.first.empty() && values->front() != row.first)) continue;
        return {&row, true, std::move(*values)};
    }
    return {};
}

}  // namespace

std::span<const StoryText> story_texts() { return kTexts; }
std::span<const std::string_view> silent_texts() { return kSilent; }

// The last row takes every text of the files that it names, so the silent ones come before it.
Reading read_text(std::string_view text, std::string_view file) {
    text = first_line(text);
    const std::span<const StoryText> rows(kTexts);
    if (Reading reading = read_with(rows.first(rows.size() - 1), text, file); reading.known) return reading;
    // These texts have no values that matter, so it is enough that one fits.
    const bool silent = std::ranges::any_of(kSilent, [&](std::string_view format) {
        return text.starts_with(head_of(format)) && values_of(text, format).has_value();
    });
    if (silent) return {nullptr, true, {}};
    return read_with(rows.last(1), text, file);
}

}  // namespace zelhost
