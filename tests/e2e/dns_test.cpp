// DNS hits: the three kinds of native records, the message, and the hot cache with its batches of repeats.
#include <cstring>

#include "e2e/harness.h"
#include "suppress/cityhash.h"

using namespace e2e;

namespace {

class Dns : public Agent {
protected:
    void hit(const DnsHit& dns) {
        send(dns);
        settle();
    }
    // The next batch of repeats, among the traces.
    Published batch() {
        Published event = expect_event(770);
        while (event.message.cmd() != vorn_retrace::TRACE_CMD_DUP_ALERT && !HasFailure()) event = expect_event(770);
        return event;
    }
};

constexpr const char* kNotBuilt = "GetThreatAlertInfo failed!";

TEST_F(Dns, HitBecomesAReportAndATrace) {
    start();
    send(DnsHit{.query_name = "Bad.Example"});
    const Published report = expect_event(769);
    EXPECT_EQ(report.source, 1281u);
    vorn_retrace::vorn_trace_info message = report.message;
    EXPECT_EQ(message.threat().alert_guid(), report.guid);
    EXPECT_EQ(message.threat().same_alert_key(),
              zel::CityHash64("domain:bad.example,ptime:900,path:/usr/bin/curl,pid:77"));
    message.mutable_threat()->clear_alert_guid();
    message.mutable_threat()->clear_same_alert_key();
    EXPECT_EQ(difference(message, R"(
        agent_id: "A-1" trace_tags_exs { str_data: "IOC" }
        threat {
            alert_type: VORN_RISK_IOC risk_level: VORN_RISK_LEVEL_CRITICAL threat_score: 90 total_score: 90
            malicious_key: "Bad.Example" alert_new_time: 5000 alert_old_time: 5000 containerid: "cid" repository: "repo"
            container_init_pid: 42
            alert_rule { confidence: 100 alert_event { type: VORN_TRACE_DNS_QUERY op_time: 5000
                subject_process { process_id: 77 process_guid: "01234567-89ab-cdef-0123-456789a" process_createtime: 900
                    process_path: "/usr/bin/curl" process_commandline: "curl bad" }
                object_dns_query { dns_name: "bad.example" dns_status: 3 dns_results: "192.0.2.1" } } }
        })"),
              "");
    EXPECT_EQ(expect_event(770).bytes, report.bytes);
    expect_logs("receive one ioc alert, qury_name:bad.example, guid:" + report.guid + "|start handle ioc!");
    expect_figures({{"sentToMbCount", 0}, {"firstTraceTotalCount", 1}});

    send(DnsHit{.path = "/\x01"});  // no message can be made of it, but it is remembered
    expect_logs(kNotBuilt + std::string("|Invoke buf is null!|event invoke failed!"));
    send(DnsHit{.path = "/\x01"});
    expect_logs("The event is in the hot cache.event:1281");
}

const ST_DNS_VARIANT_1 kFirstKind{.uPid = 77,
                                  .llCreateTime = 900,
                                  .pszProcess = {"guid-1", "/bin/one", "md5", "sha", "one -x", "root", "\x01 not read"},
                                  .pszTail = {"tail", "15 characters..\x01", "tail 3"},
                                  .uShort = {0x4141, 0x4242},
                                  .uLong = {0x43434343, 0x44444444}};
const ST_DNS_VARIANT_2 kSecondKind{
    .uPid = 78,
    .llCreateTime = 901,
    .pszProcess = {"guid-2", "/bin/two", "md5", "sha", "two -x", "root", "\x01 not read"},
    .pszDomain = "two.example",
    .uDnsStatus = 4,
    .pszDnsResults = "192.0.2.2",
    .uTail = 0x01010101};
const ST_DNS_VARIANT_3 kThirdKind{
    .pszTail = {"abc", "0123456789abcdef", "tail 3"}, .uShort = {0x4141, 0x4242}, .uLong = 0x43434343};

struct KindRow {
    const char* name;
    uint32_t kind;
    const void* variant;
    const char* key;      // the text behind the hash
    const char* message;  // subject and object
    uint32_t init_pid = 42;
    const char* container = "cid";
};
class DnsKind : public Dns, public testing::WithParamInterface<KindRow> {};

// Whatever the kind, the variant record is read where kind 2 has its members.
TEST_P(DnsKind, IsReadInThePlacesOfKind2) {
    const KindRow& row = GetParam();
    ST_DNS_NATIVE record{.uKind = row.kind, .ullHead = {}, .uHead = {42}, .pszText = {}, .pVariant = row.variant};
    record.ullHead[12] = 5000;
    record.pszText[5] = "cid";
    record.pszText[11] = record.pszText[12] = "\x01 not read";
    start();
    send(record, "query.example");
    const vorn_retrace::threat_alert threat = expect_event(769).message.threat();
    EXPECT_EQ(threat.same_alert_key(), zel::CityHash64(row.key)) << row.key;
    EXPECT_EQ(threat.malicious_key(), "query.example");
    EXPECT_EQ(threat.alert_new_time(), 5000);
    EXPECT_EQ(threat.containerid(), row.container);
    EXPECT_EQ(threat.container_init_pid(), row.init_pid);
    vorn_retrace::vorn_trace_info shown;
    *shown.mutable_threat()->add_alert_rule()->add_alert_event() = threat.alert_rule(0).alert_event(0);
    const std::string event = " type: VORN_TRACE_DNS_QUERY op_time: 5000 ";
    EXPECT_EQ(difference(shown, "threat { alert_rule { alert_event {" + event + row.message + "} } }"), "");
}

const KindRow kKindRows[] = {
    {.name = "First",
     .kind = 1,
     .variant = &kFirstKind,
     .key = "domain:tai,ptime:900,path:/bin/one,pid:77",
     .message = R"(subject_process { process_id: 77 process_guid: "guid-1" process_path: "/bin/one" process_md5: "md5"
         process_createtime: 900 process_sha256: "sha" process_commandline: "one -x" process_user: "root" }
         object_dns_query { dns_name: "tai" })"},
    {.name = "Second",
     .kind = 2,
     .variant = &kSecondKind,
     .key = "domain:two.example,ptime:901,path:/bin/two,pid:78",
     .message = R"(subject_process { process_id: 78 process_guid: "guid-2" process_path: "/bin/two" process_md5: "md5"
         process_createtime: 901 process_sha256: "sha" process_commandline: "two -x" process_user: "root" }
         object_dns_query { dns_name: "two.example" dns_status: 4 dns_results: "192.0.2.2" })"},
    {.name = "Third",
     .kind = 3,
     .variant = &kThirdKind,
     .key = "domain:,ptime:7089010202065122612,path:,pid:6513249",
     .message = R"(subject_process { process_id: 0x636261 process_createtime: 0x6261393837363534 process_guid: "cde" }
         object_dns_query {})"},
    {.name = "Unknown",
     .kind = 4,
     .variant = &kSecondKind,
     .key = "domain:,ptime:0,path:,pid:0",
     .message = "subject_process {} object_dns_query {}"},
    {.name = "WithoutVariant",
     .kind = 2,
     .variant = nullptr,
     .key = "domain:,ptime:0,path:,pid:0",
     .message = "subject_process {} object_dns_query {}",
     .init_pid = 0,
     .container = ""},
};
INSTANTIATE_TEST_SUITE_P(Table, DnsKind, testing::ValuesIn(kKindRows), row_name);

// The tails of kinds 1 and 3 stand where kind 2 has texts, and a byte that no text may hold is found in each of them.
TEST_F(Dns, HitIsRefusedForABadByteInAnyTail) {
    start();
    const auto expect_refused = [&](uint32_t kind, const void* variant, const char* place) {
        const size_t before = count_log(kNotBuilt);
        send({.uKind = kind, .ullHead = {}, .uHead = {}, .pszText = {}, .pVariant = variant}, "query.example");
        expect_log(kNotBuilt, before + 1);
        settle();
        EXPECT_EQ(count_log(kNotBuilt), before + 1) << place;
    };
    const auto first = [&](const char* place, auto change) {
        ST_DNS_VARIANT_1 variant = kFirstKind;
        change(variant);
        variant.llCreateTime = static_cast<int64_t>(count_log(kNotBuilt));  // no repeat
        expect_refused(1, &variant, place);
    };
    const auto third = [&](const char* place, auto change) {
        ST_DNS_VARIANT_3 variant = kThirdKind;
        const std::string unique = std::to_string(count_log(kNotBuilt));
        variant.pszTail[0] = unique.c_str();
        change(variant);
        expect_refused(3, &variant, place);
    };
    first("tail 1", [](auto& v) { v.pszTail[0] = "\x01"; });
    first("tail 2", [](auto& v) { v.pszTail[1] = "14 characters.\x01"; });
    first("tail 3", [](auto& v) { v.pszTail[2] = "14 characters.\x01"; });
    first("short 1", [](auto& v) { v.uShort[0] = 1; });
    first("short 2", [](auto& v) { v.uShort[1] = 1; });
    first("long 1", [](auto& v) { v.uLong[0] = 1; });
    first("long 2", [](auto& v) { v.uLong[1] = 1; });
    third("tail 2", [](auto& v) { v.pszTail[1] = "14 characters.\x01"; });
    third("tail 3", [](auto& v) { v.pszTail[2] = "\x01"; });
    third("short 1", [](auto& v) { v.uShort[0] = 1; });
    third("short 2", [](auto& v) { v.uShort[1] = 1; });
    third("long", [](auto& v) { v.uLong = 1; });
    EXPECT_EQ(count_events(769), 0u);
}

TEST_F(Dns, RepeatsAreTalliedAndReportedWhenTheirEntryLeaves) {
    set("zelreshdl.ini", "cache", "cache_size=10\ndie_num=20");
    start();
    hit({.time = 100});
    const Published first = expect_event(769);
    for (const uint64_t time : {300, 200, 400}) hit({.domain = "BAD.example", .time = time, .path = "/USR/bin/curl"});
    EXPECT_EQ(count_events(769), 1u);
    EXPECT_EQ(count_log("The event is in the hot cache.event:1281"), 3u);
    for (uint32_t pid = 1; pid <= 8; ++pid) hit({.pid = pid});  // others, for the process takes part in the key
    for (uint32_t pid = 1; pid <= 2; ++pid) hit({.pid = pid, .time = 50});
    expect_figures({{"hotCacheHitCount", 5}});
    const DnsHit long_name{.pid = 9, .query_name = "a-name-of-more-than-20-characters"};
    hit(long_name);
    expect_logs("hot cache current size:10|hot cache queue:8, die out size:2");
    const Published shed = batch();  // the oldest two, the newer first
    EXPECT_EQ(std::tuple(shed.source, shed.guid, shed.message.has_threat()), std::tuple(1281u, "", false));
    ASSERT_EQ(shed.message.dup_alerts_size(), 2);
    const auto& old = shed.message.dup_alerts(1);
    EXPECT_EQ(std::tuple(old.alert_guid(), old.same_alert_key()),
              std::tuple(first.guid, first.message.threat().same_alert_key()));
    EXPECT_EQ(std::tuple(old.malicious_key(), old.dup_count(), old.first_hit_time(), old.recent_hit_time()),
              std::tuple("bad.example", 3, 200, 400));

    hit(long_name);
    advance(1h);
    const Published aged = batch();
    ASSERT_EQ(aged.message.dup_alerts_size(), 2);  // of the eight that die, those with a repeat
    EXPECT_EQ(aged.message.dup_alerts(0).malicious_key(),
              "a-name-of-more-than-" + aged.message.dup_alerts(0).alert_guid());
}

TEST_F(Dns, SecondSightingBeforeTheFirstIsKnownLeavesTheOlderEntry) {
    start();
    hold_alarm_worker();
    for (const uint64_t time : {500, 600}) send(DnsHit{.time = time});
    bus_rests();
    hold_traces(false);
    expect_event(769);  // of the alert that held the worker
    const std::string older = expect_event(769).guid;
    settle();
    hit({.time = 400});
    advance(1h);
    const Published aged = batch();
    ASSERT_EQ(aged.message.dup_alerts_size(), 1);
    const auto& entry = aged.message.dup_alerts(0);
    EXPECT_EQ(std::tuple(entry.alert_guid(), entry.dup_count()), std::tuple(older, 1));
    EXPECT_EQ(std::tuple(entry.first_hit_time(), entry.recent_hit_time()), std::tuple(400, 400));
}

TEST_F(Dns, BatchIsSentWithoutRepeatsAndWithoutAgentId) {
    set("zelreshdl.ini", "cache", "cache_size=10\ndie_num=100");
    unsetenv("agentid");
    start();
    for (uint32_t pid = 1; pid <= 10; ++pid) hit({.pid = pid});
    const Published empty = batch();
    EXPECT_EQ(empty.guid, "");
    EXPECT_EQ(difference(empty.message, R"(agent_id: "0" cmd: TRACE_CMD_DUP_ALERT)"), "");
}

TEST_F(Dns, EachRepeatIsReportedOnceWhileEntriesComeAndGo) {
    set("zelreshdl.ini", "cache", "cache_size=10");
    set("zelreshdl.ini", "config", "queue_max=500\ntrc_times=0");
    start();
    for (uint32_t i = 0; i < 2000; ++i) {
        send(DnsHit{.pid = 1 + i * 7 % 25 + i / 200 % 3});
        if (i % 400 == 0) settle();
    }
    settle();
    advance(1h);
    expect_log("die out size:", 1 + count_log("hot cache queue:"));
    settle();
    int64_t reported = 0;
    locked([&] {
        for (const auto& [event, taken] : seen.events)
            for (const auto& entry : event.message.dup_alerts()) reported += entry.dup_count();
    });
    EXPECT_GT(reported, 0);
    expect_figures({{"hotCacheHitCount", reported}});
}

}  // namespace
