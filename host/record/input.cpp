#include "host/record/input.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

using record::Text;

// Null pointers stay null: only a text that is there is set.
// `set` gets a copy of the text.
template <class Set>
void set_text(const char* text, const Set& set) {
    if (text != nullptr) set(std::string(text));
}

// A text of the native record as the file keeps it.
Text text_of(const char* text) {
    Text out;
    if (text != nullptr) out.set_bytes(text);
    return out;
}

// The pointer is valid as long as `text`.
const char* pointer_of(const Text& text) { return text.has_bytes() ? text.bytes().c_str() : nullptr; }

// Every place of the array gets an entry, an empty one for a null pointer. So each text keeps its
// place.
template <size_t count, class Field>
void add_texts(const char* const (&texts)[count], Field* field) {
    for (const char* text : texts) *field->Add() = text_of(text);
}

// Wider in the file than in the record, so that no number is cut.
template <class Numbers, class Field>
void add_numbers(const Numbers& numbers, Field* field) {
    for (const auto number : numbers) field->Add(number);
}

// What a record has less stays null, and what it has more is left out: nothing is read beyond either end.
template <size_t count, class Field>
void get_texts(const Field& field, const char* (&texts)[count]) {
    for (int i = 0; i < std::min(field.size(), static_cast<int>(count)); ++i) texts[i] = pointer_of(field[i]);
}

// The numbers fit, since they were written from members of the same type. Those of a damaged record
// are cut.
template <size_t count, class Number, class Field>
void get_numbers(const Field& field, Number (&numbers)[count]) {
    for (int i = 0; i < std::min(field.size(), static_cast<int>(count)); ++i)
        numbers[i] = static_cast<Number>(field[i]);
}

// --- the native record of a DNS hit ---

// One function for each of the three variant records. They share some members and differ in others.
void keep_variant(const ST_DNS_VARIANT_1& variant, record::DnsVariant& out) {
    out.set_pid(variant.uPid);
    out.set_create_time(variant.llCreateTime);
    add_texts(variant.pszProcess, out.mutable_process());
    add_texts(variant.pszTail, out.mutable_tail());
    add_numbers(variant.uShort, out.mutable_shorts());
    add_numbers(variant.uLong, out.mutable_longs());
}

void keep_variant(const ST_DNS_VARIANT_2& variant, record::DnsVariant& out) {
    out.set_pid(variant.uPid);
    out.set_create_time(variant.llCreateTime);
    add_texts(variant.pszProcess, out.mutable_process());
    *out.mutable_domain() = text_of(variant.pszDomain);
    out.set_status(variant.uDnsStatus);
    *out.mutable_results() = text_of(variant.pszDnsResults);
    out.set_number(variant.uTail);
}

void keep_variant(const ST_DNS_VARIANT_3& variant, record::DnsVariant& out) {
    add_texts(variant.pszTail, out.mutable_tail());
    add_numbers(variant.uShort, out.mutable_shorts());
    out.add_longs(variant.uLong);
}

// Behind the pointer of an unknown kind nothing may be read.
record::Dns dns_of(const ST_DNS_NATIVE& native, const char* query_name) {
    record::Dns dns;
    dns.set_kind(native.uKind);
    add_numbers(native.ullHead, dns.mutable_head());
    add_numbers(native.uHead, dns.mutable_uhead());
    add_texts(native.pszText, dns.mutable_texts());
    *dns.mutable_query_name() = text_of(query_name);
    if (native.pVariant == nullptr) return dns;
    record::DnsVariant& variant = *dns.mutable_variant();
    // The kind says which variant record the pointer leads to.
    if (native.uKind == 1) keep_variant(*static_cast<const ST_DNS_VARIANT_1*>(native.pVariant), variant);
    if (native.uKind == 2) keep_variant(*static_cast<const ST_DNS_VARIANT_2*>(native.pVariant), variant);
    if (native.uKind == 3) keep_variant(*static_cast<const ST_DNS_VARIANT_3*>(native.pVariant), variant);
    return dns;
}

// The bus copies the record, so that it may live here.
void publish(const record::Dns& dns, Session& session) {
    ST_DNS_NATIVE native{};
    native.uKind = dns.kind();
    get_numbers(dns.head(), native.ullHead);
    get_numbers(dns.uhead(), native.uHead);
    get_texts(dns.texts(), native.pszText);
    const record::DnsVariant& kept = dns.variant();
    // All three variants are filled from the same fields, and the kind chooses the one that the
    // record points to. Filling one alone would need the same lines three times.
    ST_DNS_VARIANT_1 one{};
    ST_DNS_VARIANT_2 two{};
    ST_DNS_VARIANT_3 three{};
    one.uPid = two.uPid = kept.pid();
    one.llCreateTime = two.llCreateTime = kept.create_time();
    get_texts(kept.process(), one.pszProcess);
    get_texts(kept.process(), two.pszProcess);
    two.pszDomain = pointer_of(kept.domain());
    two.uDnsStatus = kept.status();
    two.pszDnsResults = pointer_of(kept.results());
    two.uTail = kept.number();
    get_texts(kept.tail(), one.pszTail);
    get_texts(kept.tail(), three.pszTail);
    get_numbers(kept.shorts(), one.uShort);
    get_numbers(kept.shorts(), three.uShort);
    get_numbers(kept.longs(), one.uLong);
    if (kept.longs_size() > 0) three.uLong = kept.longs(0);
    // A record of an unknown kind may have had a pointer, too. It gets one that is not null and
    // leads to memory that may be read.
    const void* const variants[] = {&native, &one, &two, &three};
    if (dns.has_variant()) native.pVariant = variants[native.uKind < std::size(variants) ? native.uKind : 0];
    session.publish(native, pointer_of(dns.query_name()));
}

// --- calls ---

// Only what the host can call without arguments. A newer record may hold more.
void play(record::Call call, Session& session) {
    switch (call) {
        case record::START: session.start(); break;
        case record::STOP: session.stop(); break;
        case record::RESET_BEGIN: session.reset_begin(); break;
        case record::RESET_END: session.reset_end(); break;
        default: throw Failure("the record has a call that this zelhost does not know");
    }
}

// Whatever has no case of its own in input_to_record comes here.
record::Call call_of(Input::Kind kind) {
    switch (kind) {
        case Input::start: return record::START;
        case Input::stop: return record::STOP;
        case Input::reset_begin: return record::RESET_BEGIN;
        default: return record::RESET_END;
    }
}

}  // namespace

record::Input input_to_record(const Input& input) {
    record::Input out;
    // A null pointer may come with a size, and then nothing is read.
    const auto bytes = [&] { return std::string(input.data, input.data == nullptr ? 0 : input.size); };
    switch (input.kind) {
        case Input::publish: {
            auto& publish = *out.mutable_publish();
            publish.set_event_id(input.number);
            if (input.data != nullptr) publish.set_data(bytes());
            break;
        }
        case Input::dns: *out.mutable_dns() = dns_of(*input.record, input.query_name); break;
        case Input::configure: {
            // The size stands beside the data: a host may name a size that does not fit.
            auto& configure = *out.mutable_configure();
            if (input.data != nullptr) configure.set_data(bytes());
            configure.set_size(static_cast<uint32_t>(input.size));
            break;
        }
        case Input::file_trace: {
            auto& trace = *out.mutable_file_trace();
            set_text(input.data, [&](std::string text) { trace.set_path(std::move(text)); });
            set_text(input.file_key, [&](std::string text) { trace.set_file_key(std::move(text)); });
            trace.set_kind(input.file_kind);
            trace.set_context(input.number);
            break;
        }
        case Input::process_trace: {
            auto& trace = *out.mutable_process_trace();
            if (input.data != nullptr) trace.set_data(bytes());
            trace.set_size(static_cast<uint32_t>(input.size));
            trace.set_context(input.number);
            break;
        }
        // The size of the host's buffer decides whether the plug-in can report at all.
        case Input::collect: out.mutable_collect()->set_buffer_size(input.number); break;
        default: out.set_call(call_of(input.kind));
    }
    return out;
}

void play(const record::Input& input, Session& session) {
    switch (input.what_case()) {
        case record::Input::kPublish: {
            const auto& publish = input.publish();
            // A null pointer has the size 0 here, whatever the host said then. The bus copies the
            // data.
            session.publish(publish.event_id(), publish.has_data() ? publish.data().data() : nullptr,
                            publish.data().size());
            break;
        }
        case record::Input::kDns: publish(input.dns(), session); break;
        case record::Input::kConfigure: {
            const auto& configure = input.configure();
            session.configure(configure.has_data() ? configure.data().c_str() : nullptr, configure.size());
            break;
        }
        case record::Input::kFileTrace: {
            const auto& trace = input.file_trace();
            session.file_trace(trace.has_path() ? trace.path().c_str() : nullptr,
                               trace.has_file_key() ? trace.file_key().c_str() : nullptr, trace.kind(),
                               trace.context());
            break;
        }
        case record::Input::kProcessTrace: {
            const auto& trace = input.process_trace();
            session.process_trace(trace.has_data() ? trace.data().data() : nullptr, trace.size(), trace.context());
            break;
        }
        case record::Input::kCall: play(input.call(), session); break;
        case record::Input::kCollect:
            // An agent folder without the manager's stand-in has nothing that collects reports.
            if (session.can_collect()) session.collect(input.collect().buffer_size());
            break;
        default: throw Failure("the record has an input that this zelhost does not know");
    }
}

}  // namespace zelhost
