#include "host/lib/account_json.h"

#include <cmath>

#include "host/lib/event_names.h"
#include "host/lib/utf8.h"
#include "host/lib/visible.h"

namespace zelhost {
namespace {

using Writer = JsonWriter;

// The keys are an interface, so each stands as a literal where it is written.
void number(Writer& out, const char* key, int64_t value) {
    out.Key(key);
    out.Int64(value);
}

void number(Writer& out, const char* key, uint64_t value) { number(out, key, as_signed(value)); }

// A path may hold bytes that are no UTF-8.
// Such a text is written with escapes, so that the whole stays JSON.
void text(Writer& out, const char* key, const std::string& value) {
    out.Key(key);
    const std::string written = is_utf8(value) ? value : visible(value);
    out.String(written.data(), static_cast<rapidjson::SizeType>(written.size()));
}

void write_run(Writer& out, const RunEnd& run) {
    text(out, "result", run.result);
    out.Key("seconds");
    // Milliseconds are enough. More digits would only differ from run to run.
    out.Double(std::round(run.seconds * 1000) / 1000);
    number(out, "lines", run.lines);
    number(out, "skipped", run.skipped);
    number(out, "shown", run.shown);
}

void write_log(Writer& out, const Account& account, const std::string& place) {
    out.Key("log");
    out.StartObject();
    text(out, "place", place);
    if (account.log) {
        number(out, "errors", account.totals.errors);
        number(out, "warnings", account.totals.warnings);
    }
    out.EndObject();
}

// What is left when all named ends are taken off should be 0. It is written all the same.
void write_kind(Writer& out, uint32_t id, const KindFigures& kind, const Account& account) {
    out.StartObject();
    number(out, "event", uint64_t{id});
    text(out, "name", event_name(id));
    number(out, "in", kind.in);
    number(out, "reported", kind.reported);
    if (account.log) {
        int64_t rest = as_signed(kind.in) - as_signed(kind.reported);
        number(out, "repeats", kind.repeats);
        out.Key("others");
        out.StartObject();
        for (const OtherEnd& end : other_ends(kind, id == event_id::kov ? account.totals.waiting_completions : 0)) {
            number(out, end.words, end.count);
            rest -= end.count;
        }
        out.EndObject();
        number(out, "difference", rest);
    }
    out.EndObject();
}

void write_traces(Writer& out, const Account& account) {
    out.Key("traces");
    // Without the log nobody knows the ends of traces.
    if (!account.log) {
        out.Null();
        return;
    }
    const Totals& totals = account.totals;
    out.StartObject();
    number(out, "asked_for", asked_traces(totals));
    number(out, "finished", totals.sum(&KindFigures::succeeded));
    number(out, "failed", totals.sum(&KindFigures::failed));
    number(out, "dropped", totals.sum(&KindFigures::dropped));
    number(out, "open", asked_traces(totals) - ended_traces(totals));
    number(out, "put_off", totals.sum(&KindFigures::retried));
    out.EndObject();
}

void write_statistics(Writer& out, const Account& account, bool collected) {
    out.Key("statistics");
    // A run that nobody asked for statistics has none, and neither has a plug-in that gave no
    // report.
    if (!collected || account.reports.count() == 0) {
        out.Null();
        return;
    }
    out.StartObject();
    for (const auto& [key, value] : account.reports.figures()) number(out, key.c_str(), value);
    out.EndObject();
}

void write_sink(Writer& out, const SinkAccount& sink) {
    out.Key("sink");
    out.StartObject();
    for (const SinkFigure& figure : kSinkFigures) number(out, figure.key, sink.*figure.value);
    out.Key("oldest_seconds");
    out.Double(sink.oldest_seconds);
    number(out, "difference", sink.difference());
    out.EndObject();
}

}  // namespace

void write_account(JsonWriter& out, const Account& account, bool collected) {
    out.Key("events");
    out.StartArray();
    // Kinds that the host did not publish are left out.
    for (const auto& [id, kind] : account.totals.kinds)
        if (kind.in > 0) write_kind(out, id, kind, account);
    out.EndArray();
    out.Key("given_out");
    out.StartObject();
    for (const GivenOut& row : given_out()) number(out, row.key, row.counted(account.totals));
    out.EndObject();
    write_traces(out, account);
    write_statistics(out, account, collected);
}

std::string account_json(const Account& account, const RunEnd& run, bool collected) {
    rapidjson::StringBuffer buffer;
    Writer out(buffer);
    out.StartObject();
    write_run(out, run);
    write_log(out, account, run.log_place);
    write_account(out, account, collected);
    if (run.sink) write_sink(out, *run.sink);
    out.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize()) + '\n';
}

}  // namespace zelhost
