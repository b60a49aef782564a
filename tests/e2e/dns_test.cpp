// DNS hits: the three kinds of native records, the message, and the hot cache with its batches of repeats.
#include <gmock/gmock.h>

#include "e2e/harness.h"
#include "support/show.h"
#include "suppress/cityhash.h"

using namespace e2e;

namespace {

class Dns : public Agent {
protected:
    void hit(const DnsHit& dns) {
        send(dns);
        settle();
    }
    void send_json(const std::string& members, uint32_t kind = 0) {
        send_dns(R"({"query_name":"query.example",)" + members + '}', kind);
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
    EXPECT_EQ(report.guid.size(), 36u);
    EXPECT_EQ(report.message.threat().alert_guid(), report.guid);
    EXPECT_EQ(report.message.threat().same_alert_key(),
              zel::CityHash64("domain:bad.example,ptime:900,path:/usr/bin/curl,pid:77"));
    EXPECT_EQ(report.message.threat().repository(), "repo");
    EXPECT_EQ(expect_event(770).bytes, report.bytes);
    expect_logs("receive one ioc alert, qury_name:bad.example, guid:" + report.guid + "|start handle ioc!");
    expect_figures({{"sentToMbCount", 0}, {"firstTraceTotalCount", 1}});

    send(DnsHit{.path = "/\\u0001"});  // no message can be made of it, but it is remembered
    expect_logs(kNotBuilt + std::string("|Invoke buf is null!|event invoke failed!"));
    send(DnsHit{.path = "/\\u0001"});
    expect_logs("The event is in the hot cache.event:1281");
}

// Whatever the kind, the variant record is read where kind 2 has its members.
TEST_F(Dns, EachKindIsReadInThePlacesOfKind2) {
    start();
    const struct {
        std::string hit;            // members of its JSON form
        const char *key, *subject;  // the text behind the hash; and object, as in show.h
        const char* container = " 23=cid 34=42}";
        uint32_t kind = 0;
    } rows[] = {
        {R"("kind":1,"pid":77,"create_time":900,"guid":"guid-1","path":"/bin/one","md5":"md5","sha256":"sha",)"
         R"("cmd":"one -x","user":"root","extra":"\u0001 not read","tail":["tail","15 characters..\u0001","tail 3"],)"
         R"("shorts":[16705,16962],"longs":[1128481603,1145324612])",
         "domain:tai,ptime:900,path:/bin/one,pid:77",
         "4={2=77 3=guid-1 4=/bin/one 5=md5 6=sha 8=one -x 9=root 13=900} 19={2=tai}"},
        {R"("kind":2,"pid":78,"create_time":901,"guid":"guid-2","path":"/bin/two","md5":"md5","sha256":"sha",)"
         R"("cmd":"two -x","user":"root","extra":"\u0001 not read","domain":"two.example","status":4,)"
         R"("results":"192.0.2.2","number":16843009)",
         "domain:two.example,ptime:901,path:/bin/two,pid:78",
         "4={2=78 3=guid-2 4=/bin/two 5=md5 6=sha 8=two -x 9=root 13=901} 19={2=two.example 3=4 4=192.0.2.2}"},
        {R"("kind":3,"tail":["abc","0123456789abcdef","tail 3"],"shorts":[16705,16962],"longs":[1128481603])",
         "domain:,ptime:7089010202065122612,path:,pid:6513249", "4={2=6513249 3=cde 13=7089010202065122612} 19={}"},
        {R"("pid":78)", "domain:,ptime:0,path:,pid:0", "4={} 19={}", " 23=cid 34=42}", 4},
        {R"("kind":2,"variant":false)", "domain:,ptime:0,path:,pid:0", "4={} 19={}", "} 16="},
    };
    for (const auto& [members, key, subject, container, kind] : rows) {
        send_json(R"("time":5000,"uhead":[42],"texts":[null,null,null,null,null,"cid",null,null,null,null,null,)"
                  R"("\u0001 not read","\u0001 not read"],)" +
                      members,
                  kind);
        const std::string hash = std::to_string(static_cast<int64_t>(zel::CityHash64(key)));
        EXPECT_THAT(zel_test::show(expect_event(769).bytes),
                    testing::HasSubstr(" 4=90 5=90 8=5000 9=5000 11={8={2=2 3=5000 " + std::string(subject) +
                                       "} 11=100} 14=query.example 15=" + hash + container));
        advance(1h);  // for two of them have one key
        rests(alarm_worker_sleeps);
    }
}

// The tails of kinds 1 and 3 stand where kind 2 has texts, and a byte that no text may hold is found in each of them.
TEST_F(Dns, HitIsRefusedForABadByteInAnyTail) {
    start();
    for (const char* good : {R"("kind":1)", R"("kind":3,"tail":["z"])"}) send_json(good);
    size_t refused = 0;
    for (const char* hit : {R"("kind":1,"create_time":1,"tail":["\u0001"])",
                            R"("kind":1,"create_time":2,"tail":["","14 characters.\u0001"])",
                            R"("kind":1,"create_time":3,"tail":["","","14 characters.\u0001"])",
                            R"("kind":1,"create_time":4,"shorts":[1,0])", R"("kind":1,"create_time":5,"shorts":[0,1])",
                            R"("kind":1,"create_time":6,"longs":[1,0])", R"("kind":1,"create_time":7,"longs":[0,1])",
                            R"("kind":3,"tail":["a","14 characters.\u0001"])", R"("kind":3,"tail":["b","","\u0001"])",
                            R"("kind":3,"tail":["c"],"shorts":[1,0])", R"("kind":3,"tail":["d"],"shorts":[0,1])",
                            R"("kind":3,"tail":["e"],"longs":[1])"}) {
        send_json(hit);
        settle();
        EXPECT_EQ(count_log(kNotBuilt), ++refused) << hit;
    }
    EXPECT_EQ(count_events(769), 2u) << "the good ones";
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

TEST_F(Dns, BatchIsSentWithoutRepeatsAndWithoutAgentId) {
    set("zelreshdl.ini", "cache", "cache_size=10\ndie_num=100");
    unsetenv("agentid");
    start();
    for (uint32_t pid = 1; pid <= 10; ++pid) hit({.pid = pid});
    const Published empty = batch();
    EXPECT_EQ(empty.guid + zel_test::show(empty.bytes), "1=0 5=4");
}

}  // namespace
