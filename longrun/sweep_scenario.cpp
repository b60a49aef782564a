// What a run of the allocation sweep plays: every road through the plug-in, once each, with short documents.
#include <cstdio>
#include <string>
#include <vector>

#include "platform/event_ids.h"
#include "platform/zel_trc.h"
#include "standin/zeltrc/zeltrc_host.h"
#include "longrun/sweep_session.h"

namespace sweep {
namespace {

constexpr const char* kAlerts = "alerts";  // groups of steps that depend on each other
constexpr const char* kDns = "dns";
constexpr const char* kShedding = "shedding";
constexpr const char* kRetry = "retry";
constexpr const char* kAlone = "-";

constexpr Answer kNotReady{ZEL_TRC_NOT_READY, false};
constexpr Answer kFails{-5, false};
constexpr Answer kFailsWithResult{-5, true};

std::string joined(const std::vector<std::string>& items) {
    std::string text;
    for (const auto& item : items) text += (text.empty() ? "" : ",") + item;
    return "[" + text + "]";
}

// An event of a type with the keys of that type. Some texts need a block of their own, some do not.
std::string event(int type, const std::string& keys, int pid = 4001) {
    return R"({"version":1,"type":)" + std::to_string(type) + R"(,"SubjectPid":)" + std::to_string(pid) +
           R"(,"SubjectTid":9,"SubjectCmd":"worker --listen --port 4444","SubjectCreateTime":900,"SubjectUser":"root",)" +
           R"("SubjectGuid":"g-1","SubjectImage":"/usr/local/lib/service/worker","OpTime":1000,)" + keys + "}";
}

std::string file_event() { return event(7, R"("FilePath":"/tmp/gone")"); }

std::string rule(const std::string& id, const std::vector<std::string>& events, const std::string& status = "Enable",
                 const std::string& keys = R"("internal_id":"i")") {
    return R"({"rule_id":")" + id + R"(","status":")" + status +
           R"(","mitre_id":"T1070","rule_desc":"A description that needs a block","score":5,"version":"v",)" +
           R"("rule_name":"A name that needs a block",)" + keys + R"(,"event":)" + joined(events) + "}";
}

struct Alert {
    int type = 3;
    std::vector<std::string> rules = {};
    std::string container = "host";
    std::vector<std::string> process_set = {};
    std::string risk = R"("risk_level":"high",)";

    std::string text() const {
        static int number = 0;
        char guid[40];
        snprintf(guid, sizeof guid, "11111111-2222-4333-8444-%012d", ++number);
        std::string text = "{" + risk +
                           R"("threat_score":70,"total_score":80,"verify_score":1,"verify_total_score":2,)" +
                           R"("count":1,"hash":7,"engine_ver":"e","engine_rule_ver":"er","alert_type":)" +
                           std::to_string(type) + R"(,"rule":)" + joined(rules);
        if (type == 2 || type == 6)
            text += R"(,"mounts":"m","user":"u","namespace":"n","imageid":"i","imagetag":"","Capability":"",)"
                    R"("containername":"a container with a long name","PortsBinding":"p","ImageName":"in",)"
                    R"("ContainerInitPid":99,"Privileged":1,"repository":"repo","containerid":")" +
                    container + R"(","ExtendedInfo":{"msg":"m","ScenarioInfo":{"ScenarioID":"S-1","ProcessSet":)" +
                    joined(process_set) + "}}";
        return text + R"(,"Guid":")" + guid + "\"}";
    }
};

std::string plain_alert(const std::string& rule_id) { return Alert{.rules = {rule(rule_id, {file_event()})}}.text(); }

std::string process_event(int pid) {
    return event(1,
                 R"("ObjectPid":)" + std::to_string(pid + 1000) +
                     R"(,"ObjectTid":1,"ObjectImage":"/usr/local/bin/created-process","ObjectCmd":"c",)"
                     R"("ObjectCreateTime":5,"ObjectUser":"root","ObjectGuid":"g-2",)"
                     R"("PostOpr":[{"Type":1,"Name":["SubjectPid","ObjectPid"]},{"Type":2,"Name":["ObjectPid"]}])",
                 pid);
}

std::string scenario_alert(const std::string& rule_id) {
    return Alert{.type = 2, .rules = {rule(rule_id, {process_event(31)})}, .process_set = {process_event(41)}}.text();
}

std::string rich_alert() {
    return Alert{
        .rules = {rule(
            "R-rich",
            {event(3,
                   R"("ObjectPid":1,"ObjectTid":2,"ObjectImage":"/sbin/init","ObjectCmd":"init","ObjectCreateTime":1,)"
                   R"("ObjectUser":"root","StartAddress":"140737488347136","StartModule":"libc.so.6",)"
                   R"("StartFunction":"start_thread")"),
             event(9, R"("FilePath":"/bin/a-program-of-some-name","PostTime":1715000003000,"PreTime":1614000003000)"),
             event(10, R"("FileType":"text","FilePath":"/etc/hostname","FileUser":"root")"),
             event(14, R"("DstPort":1,"SrcPort":2,"DstIp":"198.51.100.9","Protocol":"tcp","SrcIp":"192.0.2.10")"),
             event(15, R"("Domain":"a-domain-of-some-length.example","ResultIp":"198.51.100.9")"),
             event(38, R"("UnixPath":"/run/a-socket-of-some-name","Port":0,"Inode":4,"FdId":5,)"
                       R"("Highlight":["a highlight of some length","b"],"SubHighLight":["x"])")},
            "Enable", R"("internal_id":"i","tags":["a tag that needs a block","b"],"risk_tag":"t","confidence":80)")}}
        .text();
}

// A hit of variant kind 1, 2 or 3; with kind 0 one without a variant.
void send_dns(Session& session, uint32_t kind, const std::string& domain, const std::string& query_name = "") {
    const ST_DNS_VARIANT_1 first{77, 900, {"g", "/usr/bin/curl", "", "", "curl bad", "u", ""}, {"a", "b", "c"}, {}, {}};
    const ST_DNS_VARIANT_2 second{
        77, 900, {"g", "/usr/bin/curl", "", "", "curl bad", "u", ""}, domain.c_str(), 3, "192.0.2.1", 0};
    const ST_DNS_VARIANT_3 third{{"a", "b", "c"}, {}, 0};
    const void* const variants[] = {nullptr, &first, &second, &third};
    ST_DNS_NATIVE record{};
    record.uKind = kind == 0 ? 2 : kind;
    record.ullHead[12] = 5000;
    record.pszText[0] = "a repository that needs a block";
    record.pszText[5] = "container";
    record.pVariant = variants[kind];
    session.send_dns(record, query_name.empty() ? domain.c_str() : query_name.c_str());
}

using Action = std::function<void()>;

// Every kind of event and of call once, on an idle plug-in whose caches know nothing.
void play_kinds(Session& s, const std::string& run) {
    const auto step = [&](const std::string& name, const char* group, const Action& action) {
        s.step(run + name, group, action);
    };
    const auto one = [&](const std::string& name, uint32_t id, const std::string& text, const char* group = kAlone) {
        step(name, group, [&] { s.send(id, text); });
    };
    step("dns 1", kDns, [&] { send_dns(s, 1, "", "query-of-kind-one.example"); });
    step("dns 2", kDns, [&] { send_dns(s, 2, run + "a.example"); });
    step("dns 3", kDns, [&] { send_dns(s, 3, "", "query-of-kind-three.example"); });
    step("dns without variant", kDns, [&] { send_dns(s, 0, "", "query-without-variant.example"); });
    step("dns repeat", kDns, [&] { send_dns(s, 2, run + "a.example"); });

    one("scenario", event_id::ioa_alert, scenario_alert("R-scenario"), kAlerts);
    one("scenario repeat", event_id::ioa_alert, scenario_alert("R-scenario"), kAlerts);
    one("rich", event_id::ioa_alert, rich_alert());
    one("container", event_id::ioa_alert,
        Alert{.type = 2, .rules = {rule("R-container", {file_event()})}, .container = "3f4e8c1b7a2d"}.text());
    one("trigger", event_id::ioa_alert,
        Alert{.rules = {rule("R-mixed-trigger", {file_event()}, "Trigger"), rule("R-mixed", {file_event()})}}.text());
    one("trigger only", event_id::ioa_alert, Alert{.rules = {rule("R-trigger", {file_event()}, "Trigger")}}.text());
    one("no risk level", event_id::ioa_alert, Alert{.rules = {rule("R", {file_event()})}, .risk = ""}.text());
    one("second rule broken", event_id::ioa_alert,
        Alert{.rules = {rule("R-good", {file_event()}), rule("R-broken", {file_event(), event(7, R"("a":1)")})}}
            .text());
    one("no json", event_id::ioa_alert, "{\"a\":");
    one("no guid", event_id::ioa_alert, R"({"alert_type":3,"risk_level":"high"})");
    one("bad text", event_id::ioa_alert, Alert{.rules = {rule("R-bad", {event(7, R"("FilePath":"\u0001")")})}}.text());
    one("after the refused", event_id::ioa_alert, plain_alert("R-after"));

    one("memory", event_id::memory_trojan, Alert{.type = 6, .rules = {rule("R-memory", {file_event()})}}.text());
    one("scan", event_id::port_scan, R"({"src_ip":"198.51.100.7"})");
    one("brute force", event_id::brute_force, R"({"src_ip":"198.51.100.8"})");
    one("login", event_id::abnormal_login, R"({"src_ip":"198.51.100.9"})");
    one("credible", event_id::credible_event,
        "\x0a\x03"
        "abc"
        "\x72\x14"
        "a text of twenty let");
    one("detected", event_id::event_detect,
        "\x0a\x03"
        "abc"
        "\x72\x14"
        "a text of twenty let");
    one("detected, unreadable", event_id::event_detect,
        "\x0a\x03"
        "abc"
        "\x72\x7f");
    one("unprocessed", event_id::unprocessed, "data");

    one("kov", event_id::kov, "a message of the kov engine", "kov");
    step("kov not ready", "kov retry", [&] {
        s.answer(ZELTRC_COMPLETION, {kNotReady, kNotReady});
        s.send(event_id::kov, "a message of the kov engine");
    });
    step("kov ready", "kov retry", [&] {
        s.answer(ZELTRC_COMPLETION, {});
        s.advance(15s);
    });
    one("expand", event_id::trc_ex, "a request");
    step("file trace", kAlone, [&] { s.file_trace("/a/path/that/needs/a/block", "a key that needs a block", 1); });
    step("process file trace", kAlone, [&] { s.file_trace("/a/path/that/needs/a/block", "k", 2); });
    step("process trace", kAlone, [&] { s.process_trace(R"({"cmd":1})"); });
    step("configure", kAlone, [&] { s.configure(R"({"delay_time":"60000","queue_size":"100"})"); });
    step("configure, one key", kAlone, [&] { s.configure(R"({"delay_time":"60000"})"); });
    step("configure, no json", kAlone, [&] { s.configure("{"); });

    step("retry", kRetry, [&] {
        s.answer(ZELTRC_CREATE, {kNotReady});
        s.send(event_id::ioa_alert, plain_alert("R-retry"));
    });
    step("retry due", kRetry, [&] {
        s.answer(ZELTRC_CREATE, {});
        s.advance(15s);
    });
    step("trace fails", kAlone, [&] {
        s.answer(ZELTRC_CREATE, {kFailsWithResult});
        s.send(event_id::ioa_alert, plain_alert("R-fails"));
    });
}

// The limits: a full cache, busy traces, too many matches, the reset period, capture.
void play_pressure(Session& s) {
    s.step("kov fails", "kov", [&] {
        s.answer(ZELTRC_COMPLETION, {kFailsWithResult});
        s.send(event_id::kov, "a message of the kov engine");
    });
    s.step("capture", kAlone, [&] {
        s.capture(true);
        s.send(event_id::ioa_alert, plain_alert("R-capture"));
    });
    s.step("capture dns", kDns, [&] { send_dns(s, 2, "captured.example"); });
    s.step("capture kov", "kov", [&] { s.send(event_id::kov, "a message of the kov engine"); });
    s.capture(false);

    // The cache sheds at ten, and it holds five hits by now, or four when one was lost.
    for (int i = 0; i < 6; ++i)
        s.step("cache " + std::to_string(i), kDns, [&] { send_dns(s, 2, "full-" + std::to_string(i) + ".example"); });
    s.step("hit of a shed entry", kDns, [&] { send_dns(s, 2, "first a.example"); });
    s.step("hit of a kept entry", kDns, [&] { send_dns(s, 2, "full-5.example"); });

    s.step(
        "shedding, first", kShedding,
        [&] {
            s.hold(true);
            s.send(event_id::ioa_alert, plain_alert("R-shed-0"));
        },
        Rest::alarm_worker);
    for (int i = 1; i < 4; ++i)
        s.step(
            "shedding " + std::to_string(i), kShedding,
            [&] { s.send(event_id::ioa_alert, plain_alert("R-shed-" + std::to_string(i))); }, Rest::alarm_worker);
    s.step("shedding, done", kShedding, [&] {
        s.next_trace_takes(100s);
        s.hold(false);
    });
    s.step("after the shedding", kShedding, [&] { s.send(event_id::ioa_alert, plain_alert("R-cheap")); });

    // One retry is half of a limit of two, so that an alert of XDR rules alone is filtered.
    s.step("busy", "busy", [&] {
        s.configure(R"({"delay_time":"60000","queue_size":"2"})");
        s.answer(ZELTRC_CREATE, {kNotReady, kNotReady});
        s.send(event_id::ioa_alert, plain_alert("R-busy"));
    });
    s.step("busier", "busy", [&] { s.send(event_id::ioa_alert, plain_alert("R-busier")); });
    s.step("busy, filtered", "busy", [&] { s.send(event_id::ioa_alert, scenario_alert("XDR-IOA-1")); });
    s.step("busy, reported", "busy", [&] { s.send(event_id::port_scan, "{}"); });
    s.step("no longer busy", "busy", [&] {
        s.configure(R"({"delay_time":"60000","queue_size":"100"})");
        s.answer(ZELTRC_CREATE, {});
        s.advance(15s);
    });

    for (int i = 0; i < 2; ++i)
        s.step("matches " + std::to_string(i), "matches",
               [&] { s.send(event_id::ioa_alert, scenario_alert("R-often-a-long-rule-id")); });
    s.step("an hour", kDns, [&] { s.advance(61min); });
    s.step("hit after the die-out", kDns, [&] { send_dns(s, 2, "full-5.example"); });
    s.step("another hit", kDns, [&] { send_dns(s, 2, "another.example"); });
    s.step("matches an hour old", "matches", [&] { s.send(event_id::ioa_alert, scenario_alert("R-later")); });

    s.step("reset", "reset", [&] {
        s.reset_begin();
        s.send(event_id::ioa_alert, plain_alert("R-reset"));
        s.wait_for_bus();
        s.file_trace("/a", "k", 1);
        s.reset_end();
    });
    s.step("after the reset", "reset", [&] { s.send(event_id::ioa_alert, plain_alert("R-after-reset")); });
}

// The plug-in attaches to the bus once in its life, so that after the second start only calls bring work.
void play_calls(Session& s, const std::string& run) {
    s.step(run + "file trace", "calls", [&] { s.file_trace("/a/path/that/needs/a/block", "k", 1); });
    s.step(run + "process trace", kAlone, [&] { s.process_trace("a request"); });
    s.step(run + "configure", kAlone, [&] { s.configure(R"({"delay_time":"60000","queue_size":"100"})"); });
}

}  // namespace

void play(Session& s, uint64_t number) {
    s.arm(number);
    s.step("load", kAlone, [&] { s.load(); });
    s.step("start", "start", [&] { s.start(); });
    play_kinds(s, "first ");
    s.step("reports", "reports", [&] { s.report(false); });
    play_pressure(s);
    s.disarm();

    // Whatever was lost, its traces are gone after two hours, and everything works as it always did.
    s.step("flush", kDns, [&] {
        s.answer(ZELTRC_CREATE, {});
        s.answer(ZELTRC_COMPLETION, {});
        s.advance(2h);
    });
    s.step("flush reports", kDns, [&] {
        s.report(false);
        s.report(false);  // the costs of traces come one report later
    });
    play_kinds(s, "then ");
    s.step("then reports", kAlone, [&] { s.report(true); });

    s.arm(number);
    s.step("queued retry", "stop", [&] {
        s.answer(ZELTRC_CREATE, {kNotReady});
        s.send(event_id::ioa_alert, plain_alert("R-queued-retry"));
    });
    for (int i = 0; i < 2; ++i)
        s.step(
            "queued trace " + std::to_string(i), "stop",
            [&] {
                s.answer(ZELTRC_CREATE, {kFails});
                s.hold(true);
                s.send(event_id::ioa_alert, plain_alert("R-queued-" + std::to_string(i)));
            },
            Rest::alarm_worker);
    s.step("stop", "stop", [&] { s.stop_held(); });
    s.answer(ZELTRC_CREATE, {});
    s.step("second start", "start", [&] { s.start(); });
    play_calls(s, "second ");
    s.step("second reports", "calls", [&] { s.report(false); });
    s.disarm();
    s.step("flush second reports", "calls", [&] {
        s.report(false);
        s.report(false);
    });
    play_calls(s, "last ");
    s.step("last reports", kAlone, [&] { s.report(true); });
    s.step("last stop", kAlone, [&] { s.stop(); });
    s.finish();
}

}  // namespace sweep
