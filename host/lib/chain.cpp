#include "host/lib/chain.h"

#include <fmt/format.h>
#include <retrace.pb.h>

#include <algorithm>
#include <set>
#include <unordered_map>

#include "host/lib/chain_text.h"

namespace zelhost {
namespace {

using namespace vorn_retrace;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

// A highlight of one or two characters would hit nearly every vertex.
constexpr size_t kShortestHighlight = 3;

// --- texts of fields ---

// Of a field that is no message; of a list the element with this number.
// The library has one function for single fields and one for lists. Both are named at each type.
std::string value_text(const Message& message, const FieldDescriptor& field, int element) {
    const Reflection& access = *message.GetReflection();
    const auto read = [&](auto single, auto repeated) {
        return element < 0 ? (access.*single)(message, &field) : (access.*repeated)(message, &field, element);
    };
    // An enum value that the schema does not know is its number.
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_STRING:
            return clean_text(read(&Reflection::GetString, &Reflection::GetRepeatedString));
        case FieldDescriptor::CPPTYPE_ENUM: {
            const int number = read(&Reflection::GetEnumValue, &Reflection::GetRepeatedEnumValue);
            const auto* const value = field.enum_type()->FindValueByNumber(number);
            return value == nullptr ? std::to_string(number) : value->name();
        }
        case FieldDescriptor::CPPTYPE_INT32:
            return std::to_string(read(&Reflection::GetInt32, &Reflection::GetRepeatedInt32));
        case FieldDescriptor::CPPTYPE_UINT32:
            return std::to_string(read(&Reflection::GetUInt32, &Reflection::GetRepeatedUInt32));
        case FieldDescriptor::CPPTYPE_INT64:
            return std::to_string(read(&Reflection::GetInt64, &Reflection::GetRepeatedInt64));
        case FieldDescriptor::CPPTYPE_UINT64:
            return std::to_string(read(&Reflection::GetUInt64, &Reflection::GetRepeatedUInt64));
        case FieldDescriptor::CPPTYPE_FLOAT:
            return fmt::format("{}", read(&Reflection::GetFloat, &Reflection::GetRepeatedFloat));
        case FieldDescriptor::CPPTYPE_BOOL:
            return read(&Reflection::GetBool, &Reflection::GetRepeatedBool) ? "yes" : "no";
        default: return {};  // the schema has no other type, and what it gets is left out
    }
}

// Fills a template of a kind, without a limit of length.
// A template without any field is a fixed text and always used.
std::string fill(std::string_view text, const Message& message) {
    std::string filled;
    bool any_field = false;
    bool any_value = false;
    while (!text.empty()) {
        const size_t open = std::min(text.find('{'), text.size());
        filled += text.substr(0, open);
        text.remove_prefix(open);
        if (text.empty()) break;
        const size_t close = text.find('}');
        std::string_view name = text.substr(1, close - 1);
        text.remove_prefix(close + 1);
        const bool base = name.starts_with('/');
        if (base) name.remove_prefix(1);
        const FieldDescriptor* const field = message.GetDescriptor()->FindFieldByName({name.data(), name.size()});
        any_field = true;
        any_value |= message.GetReflection()->HasField(message, field);
        // An element below 0 means that the field is no list.
        const std::string value = value_text(message, *field, -1);
        filled += base ? value.substr(value.find_last_of("/\\") + 1) : value;
    }
    return any_field && !any_value ? std::string() : filled;
}

// Fields in the order of the schema, lists with one fact for each element. What is not set has no fact.
// Calls itself for messages inside messages. The schema limits how deep that goes.
void add_facts(const Message& message, const std::string& prefix, std::vector<Fact>& facts) {
    const Reflection& access = *message.GetReflection();
    std::vector<const FieldDescriptor*> fields;
    access.ListFields(message, &fields);
    for (const FieldDescriptor* const field : fields) {
        const std::string name = prefix + field->name();
        const int count = field->is_repeated() ? access.FieldSize(message, field) : 1;
        for (int i = 0; i < count; ++i) {
            if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
                const Message& inside = field->is_repeated() ? access.GetRepeatedMessage(message, field, i)
                                                             : access.GetMessage(message, field);
                add_facts(inside, name + ".", facts);
                continue;
            }
            std::string value = value_text(message, *field, field->is_repeated() ? i : -1);
            // Times are counts of milliseconds; one as small as this was never such a count.
            constexpr int64_t kFirstTime = 100'000'000'000;
            // A chain holds times in fields whose names end so.
            if (name.ends_with("time") && field->cpp_type() == FieldDescriptor::CPPTYPE_INT64)
                if (const int64_t time = access.GetInt64(message, field); time > kFirstTime) value = time_text(time);
            facts.emplace_back(name, std::move(value));
        }
    }
}

// --- what the rules say ---

// All that rules highlight, and whom and what they name.
// Collected once for a message, since every vertex and every edge is compared with it.
class Rules {
public:
    explicit Rules(const threat_alert& alert) {
        // The malicious key is a piece of text like a highlight.
        add_text(alert.malicious_key());
        for (const threat_rule& rule : alert.alert_rule()) {
            ids_.insert(rule.rule_id());
            for (const threat_event& event : rule.alert_event()) add(event);
            for (const threat_proc_node& node : rule.proc_list_node())
                starts_.emplace(node.process_id(), node.process_createtime());
        }
    }

    // An edge says itself which rule it is of.
    bool names(const behavior_edge& edge) const { return !edge.rule_id().empty() && ids_.contains(edge.rule_id()); }

    // By GUID, or by pid and start, as the trace module tells processes apart.
    bool names(const process_vertex& process) const {
        return (!process.process_guid().empty() && guids_.contains(process.process_guid())) ||
               starts_.contains({process.process_id(), process.process_createtime()});
    }

    // A highlight is a piece of a text of the alert, as "203.0.113.77:3333"; it is looked for in what the vertex shows.
    bool hits(const ChainVertex& vertex) const {
        return std::ranges::any_of(texts_, [&](const std::string& text) {
            const auto holds = [&](const std::string& line) { return line.find(text) != std::string::npos; };
            return holds(vertex.name) || std::ranges::any_of(vertex.lines, holds);
        });
    }

private:
    // A text is cleaned as those of the vertices are. Otherwise it would not be found in them.
    void add_text(const std::string& text) {
        if (text.size() >= kShortestHighlight) texts_.insert(clean_text(text));
    }
    void add_process(const process_vertex& process) {
        if (!process.process_guid().empty()) guids_.insert(process.process_guid());
        starts_.emplace(process.process_id(), process.process_createtime());
    }
    // A rule names processes in its events: the one that acts, and one that it creates.
    void add(const threat_event& event) {
        for (const string_ex& text : event.highlight()) add_text(text.str_data());
        for (const string_ex& text : event.subhighlight()) add_text(text.str_data());
        if (event.has_subject_process()) add_process(event.subject_process());
        if (event.has_object_processcreate()) add_process(event.object_processcreate());
    }

    std::set<std::string> ids_;
    std::set<std::string> texts_;
    std::set<std::string> guids_;
    // Pid and start time together name a process, since pids are used again.
    std::set<std::pair<uint64_t, int64_t>> starts_;
};

// --- the graph ---

// Vertices first, list by list, then the edges between them. Borrows the message.
class ChainBuilder {
public:
    explicit ChainBuilder(const vorn_trace_info& message) : message_(message), rules_(message.threat()) {
        for (const ChainKind& kind : chain_kinds()) add_list(kind);
        add_edges();
    }

    std::vector<ChainVertex> vertices;
    std::vector<ChainEdge> edges;

private:
    // Every list that a row names holds messages whose first field is the number of the vertex.
    void add_list(const ChainKind& kind) {
        const Message& chain = message_.trace_event();
        // A test holds the table against the schema, so the field is there.
        const FieldDescriptor* const list =
            chain.GetDescriptor()->FindFieldByName({kind.list.data(), kind.list.size()});
        const int size = chain.GetReflection()->FieldSize(chain, list);
        for (int i = 0; i < size; ++i) add_vertex(kind, chain.GetReflection()->GetRepeatedMessage(chain, list, i));
    }

    // A vertex without a name is called what it is. A highlight of its own counts like one of a rule.
    void add_vertex(const ChainKind& kind, const Message& source) {
        const FieldDescriptor* const id = source.GetDescriptor()->FindFieldByNumber(1);
        ChainVertex vertex{.node_id = source.GetReflection()->GetUInt64(source, id), .kind = &kind, .source = &source};
        vertex.name = fill(kind.name, source);
        if (vertex.name.empty()) vertex.name = kind.word;
        for (const std::string_view line : {kind.second, kind.third})
            if (std::string text = fill(line, source); !text.empty()) vertex.lines.push_back(std::move(text));
        const FieldDescriptor* const highlight = source.GetDescriptor()->FindFieldByName("highlight");
        const bool highlighted = highlight != nullptr && source.GetReflection()->FieldSize(source, highlight) > 0;
        // Only a process can be named by a rule.
        const auto* const process = dynamic_cast<const process_vertex*>(&source);
        if (highlighted || rules_.hits(vertex))
            vertex.mark = Mark::hit;
        else if (process != nullptr && rules_.names(*process))
            vertex.mark = Mark::named;
        // Of two vertices with one number the first has the edges.
        // The engines give each vertex a number of its own. A damaged message may not keep to that.
        places_.emplace(vertex.node_id, vertices.size());
        vertices.push_back(std::move(vertex));
    }

    // The place of a vertex; one that no list holds gets a place of its own.
    size_t place(uint64_t node_id) {
        const auto [at, is_new] = places_.emplace(node_id, vertices.size());
        if (is_new)
            vertices.push_back(
                {.node_id = node_id, .kind = &kUnknownVertex, .name = fmt::format("unknown vertex {}", node_id)});
        return at->second;
    }

    // Time decides, not the place in the list: edges of several engines come one engine after the other.
    void add_edges() {
        const auto& list = message_.trace_event().edge_list();
        std::vector<std::pair<int64_t, int>> in_time;  // of one time in the order of the list
        for (int i = 0; i < list.size(); ++i) in_time.emplace_back(list[i].time(), i);
        std::ranges::sort(in_time);
        for (const auto& [time, i] : in_time) {
            const behavior_edge* const source = &list[i];
            // An edge may begin or end at a vertex that no list holds.
            ChainEdge edge{.from = place(source->table_index_begin()), .to = place(source->table_index_end())};
            edge.word = edge_word(source->type());
            // Both are the place in the order of time, until edges are folded.
            edge.first = edge.last = edges.size() + 1;
            edge.source = source;
            if (rules_.names(*source)) {
                edge.mark = Mark::named;
                // What takes part in a marked act is marked as well. A hit stays a hit.
                for (const size_t end : {edge.from, edge.to})
                    vertices[end].mark = std::max(vertices[end].mark, Mark::named);
            }
            edges.push_back(edge);
        }
    }

    const vorn_trace_info& message_;
    const Rules rules_;
    std::unordered_map<uint64_t, size_t> places_;
};

// --- the title ---

// Words for the levels of the schema; a level beyond them is unknown as well.
std::string severity_of(const vorn_trace_info& message) {
    static constexpr const char* kWords[] = {"Severity unknown", "Verbose", "Low", "Medium", "High", "Critical"};
    const auto level = static_cast<size_t>(message.threat().risk_level());
    return kWords[level < std::size(kWords) ? level : 0];
}

// The span of the trace, else the time of the alert.
// Times are milliseconds since 1970; 0 stands for none.
std::string span_of(const vorn_trace_info& message) {
    if (message.trace_start() == 0 && message.trace_end() == 0)
        return message.threat().alert_new_time() == 0 ? "" : time_text(message.threat().alert_new_time());
    const std::string from = time_text(message.trace_start());
    const int64_t took = message.trace_end() - message.trace_start();
    return took == 0 ? from : fmt::format("{} to {}", from, time_text(message.trace_end()));
}

// The name of the alert as the title, its description below; without a name the description moves up.
// All texts come from the host that was attacked, so all are cleaned.
void describe(const vorn_trace_info& message, Chain& chain) {
    const threat_alert& alert = message.threat();
    chain.severity = severity_of(message);
    chain.title = clean_text(!alert.alert_name().empty() ? alert.alert_name() : alert.alert_desc());
    if (chain.title.empty()) chain.title = "Behaviour chain";
    const std::string what = alert.alert_name().empty() ? "" : clean_text(alert.alert_desc());
    const std::string guid = alert.alert_guid().empty() ? "" : "alert " + clean_text(alert.alert_guid());
    std::string host = clean_text(message.trace_event().device_data().host_name());
    if (!host.empty()) host = "host " + host;
    for (const std::string& line : {what, span_of(message), guid, host})
        if (!line.empty()) chain.subtitle.push_back(line);
}

}  // namespace

Chain chain_of(const vorn_trace_info& message) {
    Chain chain;
    describe(message, chain);
    ChainBuilder builder(message);
    chain.vertices = std::move(builder.vertices);
    chain.edges = std::move(builder.edges);
    return chain;
}

std::vector<Fact> facts_of(const Message& message) {
    std::vector<Fact> facts;
    add_facts(message, "", facts);
    return facts;
}

}  // namespace zelhost
