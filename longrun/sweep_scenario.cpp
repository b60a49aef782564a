// What a run of the call sweep plays: every road through the plug-in, with short documents. Texts that the
// plug-in keeps are long enough here and there to need a block of their own, since only then there is an allocation to
// fail.
#include <cstdio>
#include <string>
#include <vector>

#include "longrun/sweep_session.h"
#include "platform/event_ids.h"
#include "platform/zel_trc.h"
#include "standin/zeltrc/zeltrc_host.h"

namespace sweep {
namespace {

// Groups of steps that depend on each other. A repeat is a repeat only when the alert before it was reported, so one
// failure may change several steps of a group.
constexpr const char* kAlerts = "alerts";
constexpr const char* kDns = "dns";
constexpr const char* kShedding = "shedding";
constexpr const char* kRetry = "retry";
constexpr const char* kAlone = "-";

// What the trace module answers in place of a success.
constexpr Answer kNotReady{ZEL_TRC_NOT_READY, false};
constexpr Answer kFails{-5, false};
constexpr Answer kFailsWithResult{-5, true};

// The items as a JSON array.
std::string joined(const std::vector<std::string>& items) {
    std::string text;
    for (const auto& item : items) text += (text.empty() ? "" : ",") + item;
    return "[" + text + "]";
}

// An event of a type, with the keys of that type. Some of its texts need a block of their own, others do not.
std::string event(int type, const std::string& keys, int pid = 4001) {
    return R"({"version":1,"type":)" + std::to_string(type) + R"(,"SubjectPid":)" + std::to_string(pid) +
           R"(,"SubjectTid":9,"SubjectCmd":"worker --listen --port 4444","SubjectCreateTime":900,"SubjectUser":"root",)" +
           R"("SubjectGuid":"g-1","SubjectImage":"/usr/local/lib/service/worker","OpTime":1000,)" + keys + "}";
}

// The file does not exist, so its size is not in the message and runs on different machines are equal.
std::string file_event() { return event(7, R"("FilePath":"/tmp/gone")"); }

std::string rule(const std::string& id, const std::vector<std::string>& events, const std::string& status = "Enable",
                 const std::string& keys = R"("internal_id":"i")") {
    return R"({"rule_id":")" + id + R"(","status":")" + status +
           R"(","mitre_id":"T1070","rule_desc":"A description that needs a block","score":5,"version":"v",)" +
           R"("rule_name":"A name that needs a block",)" + keys + R"(,"event":)" + joined(events) + "}";
}

// A document of event 1536 or 1538. Types 2 and 6 carry a container and a scenario.
struct Alert {
    int type = 3;
    std::vector<std::string> rules = {};
    std::string container = "host";
    std::vector<std::string> process_set = {};
    std::string risk = R"("risk_level":"high",)";

    std::string text() const {
        // Each document has a GUID of its own; the numbers are the same in each run.
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

// Its object is a process, and both processes are to be checked. The pids differ, since each pid is checked once in an
// alert.
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

// Event types whose decoders allocate in ways of their own.
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

// A hit of variant kind 1, 2 or 3; kind 0 means kind 2 without a variant. The query name is the domain unless it is
// given.
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

// Plays every kind of event and of call once, on an idle plug-in whose caches know nothing. `run` goes before the names
// of the steps.
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
    // The same hit as the second one: the cache knows it, so nothing comes out.
    step("dns repeat", kDns, [&] { send_dns(s, 2, run + "a.example"); });

    one("scenario", event_id::ioa_alert, scenario_alert("R-scenario"), kAlerts);
    one("scenario repeat", event_id::ioa_alert, scenario_alert("R-scenario"), kAlerts);
    one("rich", event_id::ioa_alert, rich_alert());
    one("container", event_id::ioa_alert,
        Alert{.type = 2, .rules = {rule("R-container", {file_event()})}, .container = "3f4e8c1b7a2d"}.text());
    one("trigger", event_id::ioa_alert,
        Alert{.rules = {rule("R-mixed-trigger", {file_event()}, "Trigger"), rule("R-mixed", {file_event()})}}.text());
    // These give no report. A failure in them must still leave a line, or change nothing.
    one("trigger only", event_id::ioa_alert, Alert{.rules = {rule("R-trigger", {file_event()}, "Trigger")}}.text());
    one("no risk level", event_id::ioa_alert, Alert{.rules = {rule("R", {file_event()})}, .risk = ""}.text());
    // The first rule has been decoded when the second one is refused. The whole document is given up then.
    one("second rule broken", event_id::ioa_alert,
        Alert{.rules = {rule("R-good", {file_event()}), rule("R-broken", {file_event(), event(7, R"("a":1)")})}}
            .text());
    one("no json", event_id::ioa_alert, "{\"a\":");
    one("no guid", event_id::ioa_alert, R"({"alert_type":3,"risk_level":"high"})");
    one("bad text", event_id::ioa_alert, Alert{.rules = {rule("R-bad", {event(7, R"("FilePath":"\u0001")")})}}.text());
    // What a refused document leaves behind must not show in the next good one.
    one("after the refused", event_id::ioa_alert, plain_alert("R-after"));

    // The program that plays: a file that exists, of the same size in each run.
    one("file size", event_id::ioa_alert,
        Alert{.rules = {rule("R-size", {event(7, R"("FilePath":"/proc/self/exe")")})}}.text());

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

    // Any bytes will do, because the scripted module reads none of them.
    one("kov", event_id::kov, "a message of the kov engine", "kov");
    // Twice, because the first retry of a KOV alert is not put off.
    step("kov not ready", "kov retry", [&] {
        s.answer(ZELTRC_COMPLETION, {kNotReady, kNotReady});
        s.send(event_id::kov, "a message of the kov engine");
    });
    step("kov ready", "kov retry", [&] {
        s.answer(ZELTRC_COMPLETION, {});
        s.advance(15s);
    });
    // Straight to the trace module and out; no other step depends on it.
    one("expand", event_id::trc_ex, "a request");
    // Both kinds of file trace.
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
    // A result that comes with a failure goes out all the same.
    step("trace fails", kAlone, [&] {
        s.answer(ZELTRC_CREATE, {kFailsWithResult});
        s.send(event_id::ioa_alert, plain_alert("R-fails"));
    });
}

// Plays the limits: a full cache, busy traces, too many matches, the reset period, capture.
void play_pressure(Session& s) {
    s.step("kov fails", "kov", [&] {
        s.answer(ZELTRC_COMPLETION, {kFailsWithResult});
        s.send(event_id::kov, "a message of the kov engine");
    });
    // One message of each kind that has a file of its own.
    s.step("capture", kAlone, [&] {
        s.capture(true);
        s.send(event_id::ioa_alert, plain_alert("R-capture"));
    });
    // The captured hit enters the cache like any other.
    s.step("capture dns", kDns, [&] { send_dns(s, 2, "captured.example"); });
    s.step("capture kov", "kov", [&] { s.send(event_id::kov, "a message of the kov engine"); });
    s.capture(false);

    // The cache sheds at ten entries. It holds five by now, or four when one was lost.
    for (int i = 0; i < 6; ++i)
        s.step("cache " + std::to_string(i), kDns, [&] { send_dns(s, 2, "full-" + std::to_string(i) + ".example"); });
    // A hit that the cache has shed is reported anew; one that it kept is only tallied.
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
        // With 100 s for one process the waiting alerts are far beyond the limit of 60 s, so all of them are shed.
        s.next_trace_takes(100s);
        s.hold(false);
    });
    // A cheap trace sets the measured cost back, so that nothing else is shed.
    s.step("after the shedding", kShedding, [&] { s.send(event_id::ioa_alert, plain_alert("R-cheap")); });

    // A limit of two and one retry: half of the limit is reached, and an alert with XDR rules alone is filtered.
    s.step("busy", "busy", [&] {
        s.configure(R"({"delay_time":"60000","queue_size":"2"})");
        s.answer(ZELTRC_CREATE, {kNotReady, kNotReady});
        s.send(event_id::ioa_alert, plain_alert("R-busy"));
    });
    s.step("busier", "busy", [&] { s.send(event_id::ioa_alert, plain_alert("R-busier")); });
    s.step("busy, filtered", "busy", [&] { s.send(event_id::ioa_alert, scenario_alert("XDR-IOA-1")); });
    s.step("busy, reported", "busy", [&] { s.send(event_id::port_scan, "{}"); });
    // The limit is set back and the traces that were put off come to their end.
    s.step("no longer busy", "busy", [&] {
        s.configure(R"({"delay_time":"60000","queue_size":"100"})");
        s.answer(ZELTRC_CREATE, {});
        s.advance(15s);
    });

    for (int i = 0; i < 2; ++i)
        s.step("matches " + std::to_string(i), "matches",
               [&] { s.send(event_id::ioa_alert, scenario_alert("R-often-a-long-rule-id")); });
    // Every entry of the cache and every rule match is too old afterwards.
    s.step("an hour", kDns, [&] { s.advance(61min); });
    s.step("hit after the die-out", kDns, [&] { send_dns(s, 2, "full-5.example"); });
    s.step("another hit", kDns, [&] { send_dns(s, 2, "another.example"); });
    // The brake lets go of matches that are an hour old, which frees what an earlier step allocated.
    s.step("matches an hour old", "matches", [&] { s.send(event_id::ioa_alert, scenario_alert("R-later")); });

    s.step("reset", "reset", [&] {
        s.reset_begin();
        s.send(event_id::ioa_alert, plain_alert("R-reset"));
        // The event must arrive within the period, since it is let go only there.
        s.wait_for_bus();
        s.file_trace("/a", "k", 1);
        s.reset_end();
    });
    s.step("after the reset", "reset", [&] { s.send(event_id::ioa_alert, plain_alert("R-after-reset")); });
}

// The plug-in attaches to the bus once in its life. After the second start only calls bring work.
void play_calls(Session& s, const std::string& run) {
    s.step(run + "file trace", "calls", [&] { s.file_trace("/a/path/that/needs/a/block", "k", 1); });
    s.step(run + "process trace", kAlone, [&] { s.process_trace("a request"); });
    s.step(run + "configure", kAlone, [&] { s.configure(R"({"delay_time":"60000","queue_size":"100"})"); });
}

}  // namespace

// The order of a run: failures while everything is young, a flush, everything again without failures, then failures
// around a stop and a second start, and the calls again without failures.
void play(Session& s, uint64_t number) {
    // The count goes over both armed parts, so one number names one call of the whole run.
    s.arm(number);
    s.step("load", kAlone, [&] { s.load(); });
    s.step("start", "start", [&] { s.start(); });
    play_kinds(s, "first ");
    s.step("reports", "reports", [&] { s.report(false); });
    play_pressure(s);
    s.disarm();

    // Two hours later every trace that was put off and every entry of the cache is gone, whatever was lost. Everything
    // works as it always did.
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
    // The figures themselves: from here on they are known exactly.
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
    // The queues hold a retry and traces: a stop discards them.
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
    // Nothing may be left of the plug-in's threads and libraries after it.
    s.step("last stop", kAlone, [&] { s.stop(); });
    s.finish();
}

}  // namespace sweep
